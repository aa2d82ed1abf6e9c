#include "output/live/LiveLink.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

/// PulseAudio's is the first: its interface says which of both servers the programs here use.
constexpr std::array<std::string_view, 2> kHolders{"tqaudiorecord-live-pulse",
                                                   "tqaudiorecord-live-pipewire"};
/// A few tenths of a second of the mix and seven tracks.
constexpr std::size_t kMostWaiting = 1U << 20U;
constexpr int kSocketBytes = 1 << 20;
constexpr int kTurnMilliseconds = 50;
/// Between two times that servers are looked for.
constexpr milliseconds kShortestPause{500};
constexpr milliseconds kLongestPause{8000};
/// A server that was there for so long is looked for soon again.
constexpr milliseconds kLasting{10000};

std::string textOf(std::span<const std::byte> payload) {
    return {reinterpret_cast<const char*>(payload.data()), payload.size()};
}

/// Apart from the terminal, whose interrupt is the recorder's to obey, and from its streams, which
/// others may wait for the end of. 0 where it cannot be started.
pid_t startHolder(const std::string& program, int socket) {
    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setflags(
        &attributes,
        static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, socket, kLiveSocket);
    std::array<char*, 2> arguments{const_cast<char*>(program.c_str()), nullptr};
    pid_t process = 0;
    const int failure =
        posix_spawn(&process, program.c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return failure == 0 ? process : 0;
}

}  // namespace

std::vector<std::string> findLiveHolders() {
    std::error_code failure;
    const fs::path folder = fs::read_symlink("/proc/self/exe", failure).parent_path();
    std::vector<std::string> found;
    for (const std::string_view name : kHolders) {
        for (const fs::path& place :
             {folder / ".." / TQ_RECORDER_LIBRARY_FOLDER / "tqaudiorecord" / name, folder / name}) {
            if (fs::exists(place, failure)) {
                found.push_back(place.string());
                break;
            }
        }
    }
    return found;
}

LiveLink::LiveLink(std::vector<std::string> holders)
    : holders_(std::move(holders)), pause_(kShortestPause) {
}

LiveLink::~LiveLink() = default;

void LiveLink::poll() {
    reap();
    if (state_ == State::kDown && Clock::now() >= next_) {
        asked_ = 0;
        problem_.clear();
        startNext();
    }
    takeAnswers();
    flush();
}

void LiveLink::await(milliseconds patience) {
    poll();
    std::size_t asked = asked_;
    Clock::time_point deadline = Clock::now() + patience;
    while (state_ == State::kAsking) {
        pollfd wait{socket_.get(), POLLIN, 0};
        (void)::poll(&wait, 1, kTurnMilliseconds);
        poll();
        if (state_ == State::kAsking && asked_ == asked && Clock::now() >= deadline) {
            lose(fs::path(holders_[asked_ - 1]).filename().string() + ": no answer");
        }
        if (asked_ != asked) {
            asked = asked_;
            deadline = Clock::now() + patience;
        }
    }
}

void LiveLink::startNext() {
    socket_.reset();
    state_ = State::kDown;
    while (asked_ < holders_.size()) {
        const std::string& program = holders_[asked_++];
        std::array<int, 2> ends{-1, -1};
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            break;
        }
        // The number that the holder finds its end under is not ours: dup2() to itself would leave
        // it closed by exec.
        tqcommon::Descriptor ours(tqcommon::outOfTheWay(ends[0]));
        const tqcommon::Descriptor theirs(tqcommon::outOfTheWay(ends[1]));
        (void)setsockopt(ours.get(), SOL_SOCKET, SO_SNDBUF, &kSocketBytes, sizeof kSocketBytes);
        const pid_t process = startHolder(program, theirs.get());
        if (process > 0) {
            processes_.push_back(process);
            socket_ = std::move(ours);
            state_ = State::kAsking;
            return;
        }
    }
    if (problem_.empty()) {
        problem_ =
            "the programs that hold live sources cannot be started; is the installation "
            "whole?";
    }
    next_ = Clock::now() + pause_;
    pause_ = std::min(2 * pause_, kLongestPause);
}

void LiveLink::takeAnswers() {
    while (socket_) {
        switch (receiver_.next(socket_.get())) {
            case LiveReceiver::Got::kNothing:
                return;
            case LiveReceiver::Got::kEnd:
                lose({});
                break;
            case LiveReceiver::Got::kPacket:
                if (receiver_.header().kind == LiveKind::kReady) {
                    server_ = textOf(receiver_.payload());
                    state_ = State::kUp;
                    upSince_ = Clock::now();
                } else if (receiver_.header().kind == LiveKind::kRefused) {
                    refused_.push_back({receiver_.header().source, textOf(receiver_.payload())});
                } else {
                    lose(receiver_.header().kind == LiveKind::kFailed ? textOf(receiver_.payload())
                                                                      : std::string());
                }
        }
    }
}

/// The holder has gone, or is of no use.
void LiveLink::lose(const std::string& reason) {
    socket_.reset();
    waiting_.clear();
    waitingBytes_ = 0;
    if (!reason.empty()) {
        problem_ += (problem_.empty() ? "" : "; ") + reason;
    }
    if (state_ == State::kUp) {
        pause_ = Clock::now() - upSince_ > kLasting ? kShortestPause : pause_;
        next_ = Clock::now() + pause_;
        pause_ = std::min(2 * pause_, kLongestPause);
        state_ = State::kDown;
    } else {
        startNext();
    }
}

void LiveLink::send(const LiveHeader& header, std::span<const std::byte> payload) {
    if (state_ != State::kUp) {
        return;
    }
    flush();
    if (!socket_) {
        return;
    }
    const bool isSent =
        waiting_.empty() && sendLive(socket_.get(), header, payload) == LiveSent::kDone;
    // Where the holder has gone the next poll() sees it. Sound may be lost, the rest may not.
    if (!isSent && (waitingBytes_ < kMostWaiting || header.kind != LiveKind::kSound)) {
        waiting_.push_back({header, {payload.begin(), payload.end()}});
        waitingBytes_ += payload.size();
    }
}

void LiveLink::flush() {
    while (socket_ && !waiting_.empty() &&
           sendLive(socket_.get(), waiting_.front().header, waiting_.front().payload) ==
               LiveSent::kDone) {
        waitingBytes_ -= waiting_.front().payload.size();
        waiting_.pop_front();
    }
}

void LiveLink::finish(milliseconds patience) {
    flush();
    if (socket_) {
        shutdown(socket_.get(), SHUT_WR);
        const Clock::time_point deadline = Clock::now() + patience;
        while (Clock::now() < deadline &&
               receiver_.next(socket_.get()) != LiveReceiver::Got::kEnd) {
            pollfd wait{socket_.get(), POLLIN, 0};
            (void)::poll(&wait, 1, kTurnMilliseconds);
        }
    }
    socket_.reset();
    state_ = State::kDown;
    reap();
}

void LiveLink::reap() {
    std::erase_if(processes_,
                  [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

}  // namespace tqrecorder
