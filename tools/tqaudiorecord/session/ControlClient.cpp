#include "session/ControlClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "ipc/ControlText.h"
#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;

struct Recorder {
    std::string pid;
    tqcommon::Descriptor socket;
};

/// All of this user's that answer. Sockets of killed ones are removed.
std::vector<Recorder> recordersIn(const std::string& folder) {
    std::vector<Recorder> list;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        if (entry.path().extension() != ".sock") {
            continue;
        }
        tqcommon::Descriptor socket = controlSocket(entry.path().string(), SocketEnd::kClient);
        if (socket && isPeerOurs(socket.get())) {
            list.push_back({printable(entry.path().stem().string()), std::move(socket)});
        } else if (!socket && errno == ECONNREFUSED) {
            unlink(entry.path().c_str());
        }
    }
    std::sort(list.begin(), list.end(),
              [](const Recorder& a, const Recorder& b) { return a.pid < b.pid; });
    return list;
}

ControlAnswer asked(const Recorder& recorder, const ControlCommand& command) {
    const std::string text = toText(command);
    std::string answer(kLongestControl + 1, '\0');
    const int socket = recorder.socket.get();
    if (send(socket, text.data(), text.size(), MSG_NOSIGNAL) < 0) {
        return {false, std::string("the recorder cannot be asked: ") + std::strerror(errno) + "\n"};
    }
    ssize_t size = -1;
    do {
        size = recv(socket, answer.data(), answer.size(), 0);
    } while (size < 0 && errno == EINTR);
    if (size < 1) {
        return {false, "the recorder has gone without an answer\n"};
    }
    answer.resize(static_cast<std::size_t>(size));
    return {answer.front() == '1', answer.substr(1)};
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
    return asked(all.front(), command);
}

ControlAnswer listRecorders() {
    std::string error;
    const std::string folder = controlFolder(error);
    if (folder.empty()) {
        return {false, error + "\n"};
    }
    ControlAnswer answer;
    for (const Recorder& recorder : recordersIn(folder)) {
        const ControlAnswer one = asked(recorder, {ControlCommand::Kind::kList});
        // One that ends this moment has nothing to list.
        if (one.isDone) {
            answer.isDone = true;
            answer.text += (answer.text.empty() ? "" : "\n");
            answer.text += "recorder " + recorder.pid + ", " + one.text;
        }
    }
    return answer.isDone ? answer : ControlAnswer{false, "no recorder is running\n"};
}

}  // namespace tqrecorder
