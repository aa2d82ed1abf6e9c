#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <optional>
#include <string>

#include "common/AudioView.h"

// The door to what plays and records. A backend is one file in backends/ and a row in
// BackendTable.cpp: it drives a clock (hardware, a server, a timer, a test) and asks the device for
// one block after the other. The device does the rest: clients, time stamps, the sum of what the
// clients play, what becomes of a fork, and what to do when a backend is lost.
//
//   the device calls    open, start, stop, preferRate,       one at a time, never during another
//                       preferDuration, expect, meet,
//                       hurry, forgetAfterFork
//   the backend calls   render, changed, changedLate, lost   render and changed never at one time

namespace tqplatform {

/// What a backend plays and records, as long as it does not say otherwise.
struct DeviceFormat {
    Float64 sampleRate;      ///< Hz, 1000 to 384000
    UInt32 outputChannels;   ///< 1 to 64
    UInt32 inputChannels;    ///< 0 to 64
    UInt32 maximumFrames;    ///< most frames of one request; more are rendered in parts
    UInt32 usualFrames = 0;  ///< of most requests; 0 when that is not known
    // Between a request and what is heard of it, and between the microphone and the request. As
    // much as there can be, in frames; 0 for one slice.
    UInt32 outputLatency = 0;
    UInt32 inputLatency = 0;
};

/// What the clients that are there need of a device. Any of them is enough.
struct ClientWants {
    bool heard = false;    ///< one of them is to be heard
    bool hearing = false;  ///< one of them listens to the microphone

    bool operator==(const ClientWants&) const = default;
    [[nodiscard]] unsigned bits() const noexcept { return (heard ? 1U : 0U) | (hearing ? 2U : 0U); }
    [[nodiscard]] static ClientWants of(unsigned bits) noexcept {
        return {(bits & 1U) != 0, (bits & 2U) != 0};
    }
};

/// One block that a backend asks for. The device reads `heard` and writes `played` before render()
/// returns and keeps neither.
struct BlockRequest {
    UInt32 frames;    ///< 1 or more
    UInt64 hostTime;  ///< when the first frame is heard, in ticks of mach_absolute_time()
    /// What the microphone heard, inputChannels of `frames`; empty for silence.
    tqcommon::ConstAudioView heard{};
    /// Where all clients' sum goes, outputChannels of `frames`; empty when nobody hears it. Float,
    /// not clipped; both views may be planar or interleaved.
    tqcommon::AudioView played{};
    /// When the microphone heard the first of `heard`, in the same ticks; 0 where both are one.
    UInt64 heardTime = 0;
};

/// The device, as a backend sees it.
class BackendHost {
  public:
    /// [render thread] [real-time safe] Renders one block: every client in turn, on the calling
    /// thread. One at a time, from any thread, also when the backend was stopped meanwhile: then
    /// there may be no client and the block is silence. Returns the block's time stamp, whose
    /// sample time counts all frames that were ever rendered.
    virtual AudioTimeStamp render(const BlockRequest& block) noexcept = 0;
    /// [host thread] The next blocks have another format. Not during a render(), and none may begin
    /// before this returns: a backend that learns of it elsewhere waits for its own thread first.
    /// A format out of range counts as lost.
    virtual void changed(const DeviceFormat& format) noexcept = 0;
    /// [any thread] Behind changed(): whoever asked for it waits for the answer no more. Programs
    /// are told of it on another thread, unless somebody has told them meanwhile.
    virtual void changedLate() noexcept = 0;
    /// [any thread] As Device::isNewFormat().
    [[nodiscard]] virtual bool isNewFormat() noexcept = 0;
    /// [any thread] What the backend plays on is gone: an unplugged device, a server that died. No
    /// render() begins after this. The device ends the backend soon, on a thread of its own, and
    /// goes on with another one; a second call changes nothing.
    virtual void lost() noexcept = 0;

  protected:
    ~BackendHost() = default;
};

/// What a file in backends/ implements.
class Backend {
  public:
    Backend() = default;
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;
    /// [host thread] Ends whatever open() and start() began. When it returns no upcall is under way
    /// and none comes. It may wait for a render() to return, whatever lock the device's callers
    /// hold: a render never waits for them.
    virtual ~Backend() = default;

    /// [host thread] Called once, before everything else. Connects without playing, and says what
    /// format the first block will have; nothing when it cannot run here. `host` outlives the
    /// backend.
    virtual std::optional<DeviceFormat> open(BackendHost& host) = 0;
    /// [host thread] There are clients: requests should come, the first one soon. Called again only
    /// after stop(). False when it cannot; the device then takes it for lost.
    [[nodiscard]] virtual bool start() = 0;
    /// [any thread] Before start(): its first block is played then at the earliest, in host time.
    /// Unless that is further away than anything that a device has in hand.
    virtual void beginAt(UInt64 /*hostTime*/) noexcept {}
    /// [any thread] There is no client any more: requests should end, which need not be before this
    /// returns. Must not wait for a render() to return: it is called from inside one, too, when a
    /// client leaves from its own callback. Followed by start() at any time, also while the last
    /// request is still under way.
    virtual void stop() noexcept = 0;
    /// [any thread] The program wants another rate. A backend that can have it says so through
    /// changed(), before this returns or, when a render() is under way that does not end soon,
    /// before the next one; a caller inside a render() is never waited for (`mayWait` is false).
    /// False when it keeps its rate, which is what this one does.
    [[nodiscard]] virtual bool preferRate(Float64 /*sampleRate*/, bool /*mayWait*/) noexcept {
        return false;
    }
    /// [any thread] Whether a rate that preferRate() took was refused since by what is played on.
    [[nodiscard]] virtual bool hasRefusedRate() const noexcept { return false; }
    /// [any thread] The program wants requests of that length. As preferRate(); 0 takes it back.
    virtual bool preferDuration(Float64 /*seconds*/, bool /*mayWait*/) noexcept { return false; }
    /// [host thread] The program wants to hear the microphone of that name; empty for the default.
    /// False when there are none to choose from, and none will come.
    virtual bool preferMicrophone(const std::string& /*name*/) noexcept { return false; }
    /// [any thread] Whether a microphone is open.
    [[nodiscard]] virtual bool isHearing() const noexcept { return false; }
    /// [any thread] What the clients need that are there or about to come. A backend that gets
    /// ready for it waits at most a second, and not at all when it may not wait.
    virtual void expect(const ClientWants& /*wants*/, bool /*mayWait*/) noexcept {}
    /// [host thread] A program asks what the device is like. A backend that learns it elsewhere
    /// looks once, for a second at most, and says it through changed().
    virtual void meet() noexcept {}
    /// [any thread] The next `seconds` need not wait for their time. False when they do.
    virtual bool hurry(Float64 /*seconds*/) noexcept { return false; }
    /// In the child of a fork, outside any render(): none of this backend's threads and connections
    /// is there, and its locks may be held by threads that are gone. Forgets them without ending
    /// them; afterwards it is as if opened and not started.
    virtual void forgetAfterFork() noexcept = 0;
    /// [render thread] In the child of a fork, inside a render(): the thread that asks for blocks
    /// is the child's, and the only one. Forgets all others, as forgetAfterFork().
    virtual void forgetOthersAfterFork() noexcept {}
};

}  // namespace tqplatform
