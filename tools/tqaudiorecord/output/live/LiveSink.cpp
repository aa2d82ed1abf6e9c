#include "output/live/LiveSink.h"

#include <algorithm>
#include <cmath>

#include "output/files/FileSeries.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

/// A server on a busy machine answers by then.
constexpr milliseconds kOpenPatience{5000};
constexpr milliseconds kEndPatience{2000};
/// A source that was heard later than that is not taken away for another.
constexpr std::chrono::seconds kSilent{10};

}  // namespace

LiveSink::LiveSink(Tell tell, std::vector<std::string> holders)
    : tell_(std::move(tell)), link_(std::move(holders)) {
}

bool LiveSink::open() {
    link_.await(kOpenPatience);
    wasUp_ = link_.state() == LiveLink::State::kUp;
    if (!wasUp_) {
        problems_ = {"--live: no sound server answers: " + link_.problem()};
    }
    return wasUp_;
}

void LiveSink::block(const Process& process, const Block& block) {
    // A program that reads sources has the microphone already.
    Source* source = block.track == kMicrophoneTrack ? nullptr : sourceOf(process, block);
    if (source == nullptr || source->isRefused || !toFloats(block.format, block.frames, samples_)) {
        return;
    }
    source->lastSound = Clock::now();
    if (!source->isHeard && hasSound(block.frames, block.format)) {
        source->isHeard = true;
        if (takePlainName({process.id, std::string(block.unit)}, *source)) {
            announceAnew(*source);
        }
    }
    const std::size_t channels = source->format.channels;
    const std::size_t most = kMostLivePayload / sizeof(float) / channels * channels;
    std::span<const float> rest(samples_);
    while (!rest.empty()) {
        const std::span<const float> piece = rest.first(std::min(most, rest.size()));
        link_.send({LiveKind::kSound, source->id}, std::as_bytes(piece));
        rest = rest.subspan(piece.size());
    }
}

LiveSink::Source* LiveSink::sourceOf(const Process& process, const Block& block) {
    const std::size_t frameBytes = block.format.frameBytes();
    if (frameBytes == 0 || !(block.format.sampleRate >= 1)) {
        return nullptr;
    }
    const Key key{process.id, std::string(block.unit)};
    if (block.format.channels > kMostLiveChannels) {
        tellNone(key, process.name,
                 "it has " + std::to_string(block.format.channels) + " channels, and " +
                     std::to_string(kMostLiveChannels) + " are the most");
        return nullptr;
    }
    const auto found = sources_.find(key);
    if (found != sources_.end() && found->second.format == block.format) {
        return &found->second;
    }
    if (found != sources_.end()) {
        close(found->second);
        sources_.erase(found);
    } else if (sources_.size() >= kMostSources && !makeRoom()) {
        tellNone(key, process.name,
                 std::to_string(kMostSources) + " sources play already, which is the most");
        return nullptr;
    }
    Source source;
    source.program = process.name;
    source.name = names_.take(process.name, block.unit);
    source.format = block.format;
    source.blockFrames = static_cast<std::uint32_t>(block.frames.size() / frameBytes);
    source.isHeard = hasSound(block.frames, block.format);
    if (source.isHeard) {
        (void)takePlainName(key, source);
    }
    announceAnew(source);
    return &sources_.insert_or_assign(key, source).first->second;
}

bool LiveSink::makeRoom() {
    const auto oldest =
        std::min_element(sources_.begin(), sources_.end(), [](const auto& one, const auto& other) {
            return one.second.lastSound < other.second.lastSound;
        });
    if (Clock::now() - oldest->second.lastSound < kSilent) {
        return false;
    }
    close(oldest->second);
    sources_.erase(oldest);
    return true;
}

/// Once for each, and not of more than anybody reads.
void LiveSink::tellNone(const Key& key, const std::string& program, const std::string& why) {
    constexpr std::size_t kMostTold = 100;
    if (told_.size() < kMostTold && told_.insert(key).second) {
        tell_("no live source for " + LiveNames::description(program, key.second) + ": " + why);
    }
}

/// All others go on.
void LiveSink::takeRefused() {
    for (const LiveLink::Refused& refused : link_.takeRefused()) {
        const auto found =
            std::find_if(sources_.begin(), sources_.end(),
                         [&refused](const auto& one) { return one.second.id == refused.source; });
        if (found != sources_.end()) {
            found->second.isRefused = true;
            tell_("live source: " + found->second.name.description +
                  " was refused: " + refused.reason);
        }
    }
}

/// A scene that was saved looks for the name without a number: a launcher of the same name that has
/// been silent gives it up. False where none has it.
bool LiveSink::takePlainName(const Key& key, Source& source) {
    const auto found = std::find_if(sources_.begin(), sources_.end(), [&](const auto& other) {
        return other.first.second == key.second && !other.second.isHeard &&
               source.name.name.starts_with(other.second.name.name + ".");
    });
    if (found == sources_.end()) {
        return false;
    }
    Source& other = found->second;
    const LiveName numbered = source.name;
    // Both have gone before either comes back: a server gives a name once at a time.
    close(other);
    if (source.id != 0) {
        link_.send({LiveKind::kClose, source.id}, {});
    }
    source.name = names_.take(source.program, key.second);
    names_.giveBack(numbered);
    other.name = names_.take(other.program, key.second);
    announceAnew(other);
    return true;
}

void LiveSink::announceAnew(Source& source) {
    source.id = ++lastId_;
    source.isRefused = false;
    announce(source);
    tell_("live source: " + source.name.description);
}

void LiveSink::announce(const Source& source) {
    const std::string text = source.name.name + '\0' + source.name.description + '\0';
    link_.send({LiveKind::kOpen, source.id,
                static_cast<std::uint32_t>(std::lround(source.format.sampleRate)),
                source.format.channels, source.blockFrames},
               std::as_bytes(std::span(text)));
}

void LiveSink::close(const Source& source) {
    link_.send({LiveKind::kClose, source.id}, {});
    names_.giveBack(source.name);
}

void LiveSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    for (auto source = sources_.begin(); source != sources_.end();) {
        if (source->first.first == process.id) {
            close(source->second);
            source = sources_.erase(source);
        } else {
            ++source;
        }
    }
}

void LiveSink::tick(std::uint64_t /*elapsedMicroseconds*/) {
    link_.poll();
    takeRefused();
    follow();
}

/// The server may have gone, and may be there again.
void LiveSink::follow() {
    const bool isUp = link_.state() == LiveLink::State::kUp;
    if (isUp == wasUp_) {
        return;
    }
    wasUp_ = isUp;
    if (isUp) {
        for (auto& [key, source] : sources_) {
            source.isRefused = false;
            announce(source);
        }
        tell_("live sources: they are back, on " + link_.server());
    } else {
        tell_("live sources: " + link_.server() + " went away; they come back with it");
    }
}

void LiveSink::finish() {
    if (!wasUp_ && problems_.empty()) {
        problems_ = {"live sources: " + link_.server() + " went away and did not come back"};
    }
    link_.finish(kEndPatience);
}

}  // namespace tqrecorder
