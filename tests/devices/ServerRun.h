#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "devices/DeviceRun.h"
#include "support/servers/PipeWireServer.h"
#include "support/servers/PulseServer.h"
#include "support/sound/CountedFrames.h"

namespace tqtest {

/// Samples at its monitor are the device's.
struct PulseServerOfFloats : PulseServer {
    PulseServerOfFloats() : PulseServer(devicePlayerFormat()) {}
};

using SoundServers = testing::Types<PulseServerOfFloats, PipeWireServer>;

struct SoundServerNames {
    template <typename Server>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Server, PipeWireServer> ? "PipeWire" : "PulseAudio";
    }
};

/// The player (hosts/player.cpp) on a server of its own, and what it says.
template <typename Server>
class ServerRun : public testing::Test {
  protected:
    /// So much of the count in one piece on a monitor is no remainder of a buffer.
    static constexpr std::size_t kHeard = 24000;

    /// Starts it; `recorder` stands before its command.
    void run(const std::vector<std::string>& steps, const std::vector<std::string>& recorder = {},
             const std::string& device = "cubeb") {
        ProgramSetup setup = devicePlayer(server_.environment(), device, steps);
        setup.arguments.insert(setup.arguments.begin(), recorder.begin(), recorder.end());
        setup.environment["XDG_CACHE_HOME"] = file("caches");
        program_ = std::make_unique<Kept>(setup, folder_.path());
    }
    ProgramEnd finish() { return program_->wait(); }

    [[nodiscard]] std::string file(const std::string& name) const { return folder_.file(name); }
    /// The step that awaits the file goes on.
    void go(const std::string& name) const { std::ofstream(file(name)) << name; }
    /// Whether that stands so often in what it says, sooner or later.
    [[nodiscard]] bool says(const std::string& line, std::size_t times = 1) const {
        return eventually([&] { return timesIn(program_->text(), line) >= times; });
    }
    [[nodiscard]] static std::size_t timesIn(const std::string& text, const std::string& words) {
        std::size_t times = 0;
        for (std::size_t at = 0; (at = text.find(words, at)) != std::string::npos; ++at) {
            ++times;
        }
        return times;
    }
    /// Values of the "name=value" lines, in their order.
    [[nodiscard]] static std::vector<std::size_t> valuesOf(const std::string& text,
                                                           const std::string& name) {
        std::vector<std::size_t> values;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(name + "=")) {
                values.push_back(std::strtoull(line.c_str() + name.size() + 1, nullptr, 10));
            }
        }
        return values;
    }
    /// What it was told by the platform, in its order; not of a device that stood still for a
    /// second and went on, which every server does on a machine that has too much to do.
    [[nodiscard]] static std::string noticesIn(const std::string& text) {
        std::string notices;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("interruption=") || line.starts_with("route=")) {
                notices += " " + line;
            }
        }
        const std::string stood = " route=2 route=1";
        for (std::size_t at = 0; (at = notices.find(stood)) != std::string::npos;) {
            notices.erase(at, stood.size());
        }
        return notices.substr(std::min<std::size_t>(notices.size(), 1));
    }
    /// Whether the count is heard on the monitor of that sink, from now on.
    [[nodiscard]] bool isHeardOn(const std::string& sink = "cap") const {
        const auto recording = server_.record(sink);
        return eventually([&] { return longestCount(recording->soFar()) >= kHeard; });
    }
    std::string pactl(std::vector<std::string> words) const {
        words.insert(words.begin(), "pactl");
        return runProgram({.arguments = words, .environment = server_.environment()}).output;
    }
    [[nodiscard]] std::size_t streams() const {
        return timesIn(pactl({"list", "short", "sink-inputs"}), "\n");
    }

    Server server_;
    const TemporaryFolder folder_;
    std::unique_ptr<Kept> program_;
};

}  // namespace tqtest
