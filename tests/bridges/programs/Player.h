#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "bridges/programs/ProgramRun.h"

namespace programruns {

/// A kind of output that a test makes when it runs.
using MakeOutput = std::unique_ptr<Output> (*)();

template <typename Kind>
std::unique_ptr<Output> make() {
    return std::make_unique<Kind>();
}

inline constexpr MakeOutput kAlsa = make<FileOutput<tqtest::AlsaFilePcm>>;
inline constexpr MakeOutput kPulse = make<ServerOutput<tqtest::PulseServer>>;
inline constexpr MakeOutput kPipeWire = make<ServerOutput<tqtest::PipeWireServer>>;
inline constexpr MakeOutput kSdl = make<FileOutput<tqtest::SdlDisk>>;

/// A program of the distribution that plays a file.
struct Player {
    std::string name;
    MakeOutput makeOutput;
    std::vector<std::string> command;      ///< the file comes behind it
    std::vector<std::string> behind = {};  ///< and this behind the file
    tqtest::SoundFormat format = {};       ///< in which it plays

    [[nodiscard]] std::vector<std::string> playing(const std::string& file) const {
        std::vector<std::string> all = command;
        all.push_back(file);
        all.insert(all.end(), behind.begin(), behind.end());
        return all;
    }
};

[[nodiscard]] inline std::string nameOf(const testing::TestParamInfo<Player>& each) {
    return each.param.name;
}

inline void PrintTo(const Player& player, std::ostream* out) {
    *out << player.name;
}

}  // namespace programruns
