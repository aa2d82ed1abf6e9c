// What a user asks of the outputs while they are written.

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "cli/Outputs.h"
#include "cli/StatusText.h"
#include "ipc/Printable.h"
#include "view/Summary.h"

namespace tqrecorder {
namespace {

/// Bit of their tickets: those of saves are counted by themselves.
constexpr std::uint64_t kSplits = std::uint64_t{1} << 63U;

/// Whether no file has still to be written up to the split.
bool isDone(const SplitFiles& split) {
    return split.use_count() == 1;
}

}  // namespace

void Outputs::block(const Process& process, const Block& block) {
    if (pauses_.isWithin(block.microseconds)) {
        isPlayedInPause_ = isPlayedInPause_ || hasSound(block.frames, block.format);
        return;
    }
    // The microphone is nobody's sound: it is not in here yet.
    if (!names_->hasSounded(process.id) && hasSound(block.frames, block.format)) {
        names_->hear(process);
    }
    Block moved = block;
    moved.microseconds -= pauses_.before(block.microseconds);
    moved.lostFrames =
        pauses_.lostOutside(block.microseconds, block.lostFrames, block.format.sampleRate);
    if (voice_) {
        voice_->block(process, moved);
    } else {
        SinkSet::block(process, moved);
    }
}

void Outputs::heard(const HeardBlock& block) {
    voiceFacts_.add(block);
    if (voice_ && !pauses_.isWithin(block.microseconds)) {
        HeardBlock moved = block;
        moved.microseconds -= pauses_.before(block.microseconds);
        voice_->heard(moved);
        sayWhatTheVoiceWaitsFor();
    }
}

/// Once for each time in which nothing plays.
void Outputs::sayWhatTheVoiceWaitsFor() {
    constexpr double kLongSeconds = 2;
    const bool isLong = voice_->waitsForSeconds() > kLongSeconds;
    if (isLong && !isVoiceWaiting_) {
        notice("the microphone is not recorded until something plays");
    }
    isVoiceWaiting_ = isLong;
}

void Outputs::turnEnded(bool isAll) {
    if (voice_) {
        voice_->turnEnded(isAll);
    }
}

void Outputs::processEnded(const Process& process, const HostFacts& facts) {
    if (voice_) {
        voice_->ended(process);
    }
    SinkSet::processEnded(process, facts);
}

void Outputs::lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) {
    if (!pauses_.isPaused()) {
        SinkSet::lost(process, blocks, bytes);
    }
}

void Outputs::event(const Process& process, const Event& event) {
    Event moved = event;
    moved.paused = pauses_.before(event.microseconds);
    SinkSet::event(process, moved);
}

ControlAnswer Outputs::control(const ControlCommand& command) {
    using Kind = ControlCommand::Kind;
    switch (command.kind) {
        case Kind::kSave:
            return save(command.number);
        case Kind::kPause:
            return setPaused(true);
        case Kind::kResume:
            return setPaused(false);
        case Kind::kTogglePause:
            return setPaused(!pauses_.isPaused());
        case Kind::kSplit:
            return split();
        case Kind::kFiles:
            return {true, fileLines(files())};
        case Kind::kStatus:
            return {true, statusText(*observer_, files(), pauses_.isPaused(), command.asJson)};
        case Kind::kList:
            return {true, listText(*observer_, pauses_.isPaused())};
        case Kind::kStop:
        case Kind::kDuck:
        case Kind::kUnduck:
            break;
    }
    return SinkSet::control(command);
}

void Outputs::notice(const std::string& line) {
    if (!options_.quiet) {
        screen_.line("tqaudiorecord: " + line);
    }
}

ControlAnswer Outputs::told(const std::string& what, const std::vector<WrittenFile>& files) const {
    std::string text;
    for (const WrittenFile& file : files) {
        const std::string line = fileLine(file);
        text += line + "\n";
        if (!options_.quiet) {
            screen_.line("tqaudiorecord: " + what + " " + line);
        }
    }
    return {true, text};
}

ControlAnswer Outputs::save(std::optional<double> seconds) {
    if (replay_ == nullptr) {
        const std::string text = "nothing is kept to be saved: start the recording with --replay";
        notice(text);
        return {false, text + "\n"};
    }
    if (seconds && !(*seconds > 0)) {
        return {false, "save wants more than 0 seconds\n"};
    }
    if (replay_->isSavingAllItCan()) {
        const std::string text = "so many saves are being written that there is room for no more";
        notice(text);
        return {false, text + "\n"};
    }
    const std::uint64_t ticket = replay_->beginSave(seconds);
    return ticket == 0 ? nothingToSave() : ControlAnswer{.isDone = true, .ticket = ticket};
}

ControlAnswer Outputs::nothingToSave() const {
    if (!options_.quiet) {
        screen_.line("tqaudiorecord: there is nothing to save yet");
    }
    return {false, "there is nothing to save yet\n"};
}

std::vector<ControlAnswer> Outputs::lateAnswers() {
    std::vector<ControlAnswer> answers;
    if (replay_ != nullptr) {
        for (ReplaySaved& saved : replay_->takeSaved()) {
            const std::uint64_t ticket = saved.ticket;
            answers.push_back(answerOf(std::move(saved)));
            answers.back().ticket = ticket;
        }
    }
    for (const Split& split : splits_) {
        if (isDone(split.done)) {
            answers.push_back(answerOf(split));
            answers.back().ticket = split.ticket;
        }
    }
    std::erase_if(splits_, [](const Split& split) { return isDone(split.done); });
    return answers;
}

ControlAnswer Outputs::answerOf(ReplaySaved saved) const {
    if (!saved.problems.empty()) {
        return {false, printable(saved.problems.back()) + "\n"};
    }
    if (saved.files.empty()) {
        return nothingToSave();
    }
    for (WrittenFile& file : saved.files) {
        file.path = printable(file.path);
    }
    return told("saved", saved.files);
}

ControlAnswer Outputs::split() {
    if (replay_ != nullptr || files_.empty()) {
        return {false, "there is no file under way that could be split\n"};
    }
    Split split{kSplits | ++lastSplit_, std::make_shared<std::vector<WrittenFile>>()};
    // Of silence alone nothing has a name that could be said. Sound may wait behind silence.
    if (names_->isHeard() || std::any_of(files_.begin(), files_.end(),
                                         [](const FilesSink* sink) { return sink->isHeard(); })) {
        for (FilesSink* sink : files_) {
            sink->split(split.done);
        }
    }
    if (isDone(split.done)) {
        return answerOf(split);
    }
    splits_.push_back(std::move(split));
    return {.isDone = true, .ticket = splits_.back().ticket};
}

ControlAnswer Outputs::answerOf(const Split& split) const {
    if (split.done->empty()) {
        return {false, "no file has any sound yet that could end here\n"};
    }
    for (WrittenFile& file : *split.done) {
        file.path = printable(file.path);
    }
    return told("complete:", *split.done);
}

/// A key that was pressed by mistake is understood at the end at the latest.
std::string Outputs::pauseLine() const {
    if (!pauses_.isAny()) {
        return {};
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "Paused for %.1f s in all, which are not recorded\n",
                  static_cast<double>(pauses_.before(closedAt_)) / 1e6);
    return text.data();
}

/// What is saved from then on is no pause.
void Outputs::closed() {
    closedAt_ = hostTime();
}

ControlAnswer Outputs::setPaused(bool isPaused) {
    if (closedAt_ != 0) {
        return {false, "the recording is over\n"};
    }
    if (isPaused == pauses_.isPaused()) {
        return {false, isPaused ? "it is paused already\n" : "it is not paused\n"};
    }
    if (isPaused) {
        pauses_.pause(hostTime());
    } else {
        pauses_.resume(hostTime());
    }
    observer_->setPaused(isPaused);
    const std::string text = isPaused ? "paused" : "the recording goes on";
    if (!options_.quiet) {
        screen_.line("tqaudiorecord: " + text);
    }
    return {true, text + "\n" + fileLines(files())};
}

}  // namespace tqrecorder
