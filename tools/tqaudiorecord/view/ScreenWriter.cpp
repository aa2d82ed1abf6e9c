#include "view/ScreenWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace tqrecorder {
namespace {

constexpr int kPatienceMilliseconds = 5000;
/// Of a terminal that cannot be opened anew: it says that there is room, not for how much.
constexpr std::size_t kPolledBytes = 64;

/// The next piece to write: whole lines where they fit, so that other programs' lines come between
/// ours and not into them. A pipe takes that much in one piece.
std::string_view pieceOf(std::string_view text, std::size_t most) {
    const std::string_view piece = text.substr(0, most);
    const std::size_t end = piece.rfind('\n');
    return end == std::string_view::npos ? piece : piece.substr(0, end + 1);
}

}  // namespace

ScreenWriter::ScreenWriter(int descriptor) : descriptor_(descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        return;
    }
    if (S_ISSOCK(status.st_mode)) {
        way_ = Way::kSocket;
    } else if (S_ISFIFO(status.st_mode) || ::isatty(descriptor) == 1) {
        // Opened anew it has flags of its own: not to wait is our choice, not that of all who
        // write there.
        const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
        own_ = tqcommon::Descriptor(
            ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        way_ = own_ ? Way::kNonBlocking : Way::kPolled;
    }
}

long ScreenWriter::writeSome(std::string_view text) const {
    const auto isReady = [this] {
        pollfd ready{descriptor_, POLLOUT, 0};
        return ::poll(&ready, 1, 0) == 1;
    };
    while (true) {
        const std::string_view piece = pieceOf(text, PIPE_BUF);
        ssize_t written = -1;
        switch (way_) {
            case Way::kPlain:
                written = ::write(descriptor_, piece.data(), piece.size());
                break;
            case Way::kNonBlocking:
                written = ::write(own_.get(), piece.data(), piece.size());
                break;
            case Way::kSocket:
                written =
                    ::send(descriptor_, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
                break;
            case Way::kPolled:
                if (!isReady()) {
                    return -1;
                }
                written = ::write(descriptor_, piece.data(), std::min(piece.size(), kPolledBytes));
                break;
        }
        if (written >= 0 || errno != EINTR) {
            return written >= 0 ? written : errno == EAGAIN ? -1 : 0;
        }
    }
}

void ScreenWriter::put(std::string_view text) {
    waiting_ += text;
    pump();
}

void ScreenWriter::pump() {
    std::size_t done = 0;
    while (done < waiting_.size()) {
        const long written = writeSome(std::string_view(waiting_).substr(done));
        if (written == 0) {
            written_ += done;
            waiting_.clear();  // the terminal is gone; the recording goes on without it
            return;
        }
        if (written < 0) {
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    written_ += done;
    waiting_.erase(0, done);
}

bool ScreenWriter::settle(unsigned long long& lost) {
    pump();
    while (!waiting_.empty()) {
        pollfd ready{own_ ? own_.get() : descriptor_, POLLOUT, 0};
        const std::size_t before = waiting_.size();
        if (::poll(&ready, 1, kPatienceMilliseconds) == 1) {
            pump();
        }
        if (waiting_.size() == before) {
            lost +=
                static_cast<unsigned long long>(std::count(waiting_.begin(), waiting_.end(), '\n'));
            waiting_.clear();
            return false;
        }
    }
    return true;
}

}  // namespace tqrecorder
