#pragma once

#include <ctime>
#include <string>

#include "common/Descriptor.h"
#include "core/Options.h"

namespace tqrecorder {

/// The user's folder for music: XDG_MUSIC_DIR of the environment or of user-dirs.dirs, else Music
/// in the home folder. Whether it is there is not looked at.
[[nodiscard]] std::string musicFolder();

/// Where the mix goes when the user names no place: PROGRAM-DATE-TIME in the music folder, as FLAC
/// or in the format that was asked for, with a number where that name is taken.
[[nodiscard]] std::string defaultOutput(const Options& options, std::time_t now);

/// To be held while a place is chosen and until the file is made there: recorders that begin at
/// once take turns. Waits two seconds at the longest.
[[nodiscard]] tqcommon::Descriptor turnToChoose();

}  // namespace tqrecorder
