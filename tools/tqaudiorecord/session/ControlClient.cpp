#include "session/ControlClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include "ipc/ControlText.h"
#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;

struct Recorder {
    std::string pid;
    tqcommon::Descriptor socket;  ///< empty where it takes no connection in time
};

/// All of this user's that there are. Sockets of killed ones are removed.
std::vector<Recorder> recordersIn(const std::string& folder) {
    std::vector<Recorder> list;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        if (entry.path().extension() != ".sock") {
            continue;
        }
        tqcommon::Descriptor socket = controlSocket(entry.path().string(), SocketEnd::kClient);
        const int error = socket ? 0 : errno;
        if (socket ? isPeerOurs(socket.get()) : error == EAGAIN) {
            list.push_back({printable(entry.path().stem().string()), std::move(socket)});
        } else if (error == ECONNREFUSED) {
            unlink(entry.path().c_str());
        }
    }
    std::sort(list.begin(), list.end(),
              [](const Recorder& a, const Recorder& b) { return a.pid < b.pid; });
    return list;
}

/// Whether somebody has stopped it, with Ctrl-Z or a debugger.
bool isStopped(const Recorder& recorder) {
    std::ifstream file("/proc/" + recorder.pid + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t end = line.rfind(')');
    return end != std::string::npos && end + 2 < line.size() &&
           (line[end + 2] == 'T' || line[end + 2] == 't');
}

ControlAnswer silenceOf(const Recorder& recorder) {
    return {false, "recorder " + recorder.pid +
                       (isStopped(recorder) ? " is stopped and does not answer; kill -CONT " +
                                                  recorder.pid + " lets it go on\n"
                                            : " does not answer\n")};
}

enum class Patience { kOneCall, kWhileItRuns };

/// Nothing where no answer comes in that time. One that is stopped is not waited for.
std::optional<ControlAnswer> asked(const Recorder& recorder, const ControlCommand& command,
                                   Patience patience) {
    const std::string text = toText(command);
    std::string answer(kLongestControl + 1, '\0');
    const int socket = recorder.socket.get();
    if (!recorder.socket) {
        return std::nullopt;
    }
    if (send(socket, text.data(), text.size(), MSG_NOSIGNAL) < 0) {
        return ControlAnswer{
            false, std::string("the recorder cannot be asked: ") + std::strerror(errno) + "\n"};
    }
    ssize_t size = -1;
    do {
        size = recv(socket, answer.data(), answer.size(), 0);
        if (size < 0 && errno == EAGAIN) {
            if (patience == Patience::kOneCall || isStopped(recorder)) {
                return std::nullopt;
            }
            errno = EINTR;
        }
    } while (size < 0 && errno == EINTR);
    if (size < 1) {
        return ControlAnswer{false, "the recorder has gone without an answer\n"};
    }
    answer.resize(static_cast<std::size_t>(size));
    return ControlAnswer{answer.front() == '1', answer.substr(1)};
}

}  // namespace

ControlAnswer controlRecorder(std::optional<pid_t> recorder, const ControlCommand& command) {
    std::string error;
    const std::string folder = controlFolder(error);
    if (folder.empty()) {
        return {false, error + "\n"};
    }
    std::vector<Recorder> all = recordersIn(folder);
    if (recorder) {
        std::erase_if(all, [wanted = std::to_string(*recorder)](const Recorder& one) {
            return one.pid != wanted;
        });
    }
    if (all.empty()) {
        return {false, recorder ? "no recorder with the process number " +
                                      std::to_string(*recorder) + " is running\n"
                                : "no recorder is running\n"};
    }
    if (all.size() > 1) {
        std::string pids;
        for (const Recorder& one : all) {
            pids += " " + one.pid;
        }
        return {false, "several recorders are running; say which with --pid:" + pids + "\n"};
    }
    return asked(all.front(), command, Patience::kWhileItRuns).value_or(silenceOf(all.front()));
}

ControlAnswer listRecorders() {
    std::string error;
    const std::string folder = controlFolder(error);
    if (folder.empty()) {
        return {false, error + "\n"};
    }
    ControlAnswer answer;
    for (const Recorder& recorder : recordersIn(folder)) {
        const auto one = asked(recorder, {ControlCommand::Kind::kList}, Patience::kOneCall);
        // One that ends this moment has nothing to list.
        if (!one || one->isDone) {
            answer.isDone = true;
            answer.text += (answer.text.empty() ? "" : "\n");
            answer.text +=
                one ? "recorder " + recorder.pid + ", " + one->text : silenceOf(recorder).text;
        }
    }
    return answer.isDone ? answer : ControlAnswer{false, "no recorder is running\n"};
}

}  // namespace tqrecorder
