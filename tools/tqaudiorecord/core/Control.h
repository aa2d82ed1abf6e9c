#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tqrecorder {

/// What a user asks of a recording while it runs.
struct ControlCommand {
    enum class Kind {
        kSave,
        kPause,
        kResume,
        kTogglePause,
        kSplit,
        kStop,
        kStatus,
        kFiles,
        kList,
        kDuck,
        kUnduck,
    };

    Kind kind = Kind::kStatus;
    std::optional<double> number{};  ///< seconds to save, dB to duck by
    bool asJson = false;             ///< of a status
};

struct ControlAnswer {
    bool isDone = false;
    std::string text{};  ///< for the user, in whole lines or empty
    /// Not 0: this is no answer yet; it comes with that ticket when the thing is done.
    std::uint64_t ticket = 0;
};

}  // namespace tqrecorder
