#include "device/handover/OpeningNotice.h"

namespace tqplatform {

namespace {

using Facts = const OpeningFacts&;

struct Row {
    OpeningNotice notice;
    bool (*holds)(Facts) noexcept;
};

/// The first that holds is told, and nothing else.
constexpr Row kRows[] = {
    // Who resumes at the end knows what with.
    {OpeningNotice::newFormatThenInterruptionEnds,
     [](Facts is) noexcept { return is.isThere && is.isInterrupted && is.isNewFormat; }},
    {OpeningNotice::interruptionEnds,
     [](Facts is) noexcept { return is.isThere && is.isInterrupted; }},
    // Of one that stood still its going was told.
    {OpeningNotice::deviceHasGone,
     [](Facts is) noexcept {
         return is.isThere && is.wasLost && !is.wasStill && !is.awaitsFirstBlock;
     }},
    {OpeningNotice::newDevice,
     [](Facts is) noexcept {
         const bool isAnother = is.wasOutdated || is.wasStill || is.isOtherMicrophone;
         return is.isThere && isAnother && !is.awaitsFirstBlock && !is.isInHope;
     }},
    {OpeningNotice::microphoneIsThere,
     [](Facts is) noexcept { return is.isThere && is.wasDeaf && !is.isToPlay; }},
    {OpeningNotice::newFormat, [](Facts is) noexcept { return is.isThere && is.isNewFormat; }},
    // Who listened has missed what was to be heard while the speakers were opened.
    {OpeningNotice::newFormat,
     [](Facts is) noexcept { return is.isThere && is.heardAlone && is.isToPlay; }},
    {OpeningNotice::newLength, [](Facts is) noexcept { return is.isThere && is.hasOtherLength; }},
    {OpeningNotice::microphoneIsNot, [](Facts is) noexcept { return !is.isThere && !is.isHeard; }},
    {OpeningNotice::interruption, [](Facts is) noexcept { return !is.isThere && is.hasRun; }},
    // What never ran was not interrupted.
    {OpeningNotice::cannotPlay, [](Facts is) noexcept { return !is.isThere && is.hasBeenThere; }},
};

}  // namespace

OpeningNotice noticeOf(const OpeningFacts& facts) noexcept {
    for (const Row& row : kRows) {
        if (row.holds(facts)) {
            return row.notice;
        }
    }
    return OpeningNotice::nothing;
}

}  // namespace tqplatform
