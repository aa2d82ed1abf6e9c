#!/usr/bin/env python3
"""What check_includes.py finds in small trees: each test adds one file to a tree that is in order."""

import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import check_includes  # noqa: E402

TREE = {
    "common/Threads.h": "#include <vector>\n",
    "audio_utils/ring.h": '#include "common/Threads.h"\n',
    "platform/include/AudioToolbox/AudioToolbox.h": "#pragma once\n",
    "platform/unit/Unit.h": '#include "common/Threads.h"\n',
    "hook/tq_hook.h": "#include <elf.h>\n",
    "Resolver/Resolver.h": '#include "hook/tq_hook.h"\n',
    "Classes/Manager.h": "#include <AudioToolbox/AudioToolbox.h>\n#include <ring.h>\n",
    "capi/capture.h": "#include <Manager.h>\n#include <unistd.h>\n",
    "bridges/core/Pacer.h": '#include "common/Threads.h"\n',
    "bridges/core/Stream.h": "#include <AudioToolbox/AudioToolbox.h>\n"
                             '#include "hook/tq_hook.h"\n#include "capi/capture.h"\n',
    "tools/recorder/main.cpp": "#include <TQAudioRecord/capture.h>\n",
    "examples/listener/listener.cpp": "#include <TQAudioRecord/Manager.h>\n",
}


class CheckIncludesTest(unittest.TestCase):
    def complaints(self, added=None):
        """Of the tree in order with those files added or put in place of its own."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**TREE, **(added or {})}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return check_includes.check(root)

    def assert_finds(self, added, *expected):
        found = self.complaints(added)
        self.assertEqual(len(found), len(expected), found)
        for complaint, words in zip(found, expected):
            self.assertIn(words, complaint)

    def test_a_tree_in_order_passes(self):
        self.assertEqual(self.complaints(), [])

    def test_an_include_that_points_upward_is_found(self):
        self.assert_finds(
            {"platform/unit/Bad.cpp": "\n# include <Manager.h>\n"},
            "platform/unit/Bad.cpp:2: platform/ must not include Classes/: Manager.h",
            "Classes -> platform -> Classes",
        )

    def test_an_include_sideways_is_found(self):
        self.assert_finds({"hook/Bad.cpp": '#include "unit/Unit.h"\n'},
                          "hook/ must not include platform/: unit/Unit.h")

    def test_an_include_by_a_relative_path_is_found(self):
        self.assert_finds({"audio_utils/deep/Bad.h": '#include "../../hook/tq_hook.h"\n'},
                          "audio_utils/ must not include hook/")

    def test_a_circle_of_rooms_is_found(self):
        self.assert_finds(
            {"common/Bad.h": '#include "ring.h"\n'},
            "common/ must not include audio_utils/",
            "audio_utils -> common -> audio_utils",
        )

    def test_a_program_that_looks_inside_is_found(self):
        self.assert_finds({"examples/Bad.c": '#include "unit/Unit.h"\n'},
                          "examples/ must not include platform/")

    def test_a_bridge_that_looks_inside_is_found(self):
        for header, place in (("unit/Unit.h", "platform/unit/Unit.h"),
                              ("Manager.h", "Classes/Manager.h")):
            self.assert_finds({"bridges/alsa/Bad.cpp": f'#include "{header}"\n'},
                              f"bridges/ must not include {place}")

    def test_a_pure_part_of_the_bridges_that_knows_what_it_serves_is_found(self):
        for header in ("hook/tq_hook.h", "bridges/core/Stream.h"):
            self.assert_finds({"bridges/core/Pacer.cpp": f'#include "{header}"\n'},
                              "a pure part includes common/ only")

    def test_an_own_header_comes_before_one_of_the_same_name_elsewhere(self):
        self.assertEqual(
            self.complaints({"Classes/Guard.h": "", "hook/inner/Guard.h": "",
                             "hook/Good.cpp": '#include "inner/Guard.h"\n#include "Guard.h"\n'}),
            [])

    def test_the_operating_systems_headers_are_found_in_classes(self):
        for header in ("unistd.h", "sys/mman.h", "linux/futex.h", "elf.h", "link.h", "dlfcn.h"):
            self.assert_finds({"Classes/Bad.cpp": f"#include <{header}>\n"},
                              f"no header of the operating system: {header}")

    def test_conditions_on_a_platform_are_found_in_classes(self):
        for condition in ("#ifdef __linux__", "# if defined(__APPLE__)", "#elif __x86_64__"):
            self.assert_finds({"Classes/Bad.h": condition + "\n"}, "no condition on a platform")
        self.assertEqual(self.complaints({"Classes/Good.h": "#ifdef NDEBUG\n"}), [])


if __name__ == "__main__":
    unittest.main()
