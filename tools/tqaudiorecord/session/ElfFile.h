#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tqrecorder {

/// What decides whether a library can be preloaded into a program, read from its ELF file.
struct ElfFile {
    bool isOurMachine = false;
    bool isStatic = false;    ///< has no interpreter
    std::string interpreter;  ///< the loader
    std::vector<std::string> needed;
    std::vector<std::string> searchPath;  ///< RPATH and RUNPATH, $ORIGIN replaced

    /// What is looked at of a search path: a file can name half a million folders.
    static constexpr std::size_t kMostFolders = 100;
};

/// Nothing when the file cannot be read or is no ELF file; broken ones give what could be read.
[[nodiscard]] std::optional<ElfFile> readElfFile(const std::string& path);

}  // namespace tqrecorder
