#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "TQAudioRecordLog.h"

/// One record as a registered callback got it.
struct LogLine {
    std::string file;
    std::string function;
    std::string tag;
    int level;
    int line;
    std::string message;

    friend std::ostream& operator<<(std::ostream& out, const LogLine& record) {
        return out << record.file << ':' << record.line << ' ' << record.function << " level "
                   << record.level << " [" << record.tag << "] " << record.message;
    }
};

/// Records every line of the library while it lives, from any thread. One at a time.
class LogCapture {
  public:
    LogCapture() {
        clear();
        TQAudioRecordRegisterYLogCallback(&record);
    }
    ~LogCapture() { TQAudioRecordUnregisterYLogCallback(&record); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void clear() {
        const std::scoped_lock guard(store().mutex);
        store().lines.clear();
    }
    [[nodiscard]] std::vector<LogLine> lines() const {
        const std::scoped_lock guard(store().mutex);
        return store().lines;
    }
    /// The lines of one function, as the records spell its name.
    [[nodiscard]] std::vector<LogLine> linesOf(std::string_view function) const {
        std::vector<LogLine> found = lines();
        std::erase_if(found, [&](const LogLine& line) { return line.function != function; });
        return found;
    }
    [[nodiscard]] std::vector<std::string> messages() const {
        std::vector<std::string> texts;
        for (const LogLine& line : lines()) {
            texts.push_back(line.message);
        }
        return texts;
    }
    /// How many lines bear exactly that message.
    [[nodiscard]] std::size_t count(std::string_view message) const {
        const std::vector<LogLine> all = lines();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [&](const LogLine& line) { return line.message == message; }));
    }

  private:
    struct Store {
        std::mutex mutex;
        std::vector<LogLine> lines;
    };
    /// Never destroyed: other threads may still log while the program ends.
    static Store& store() {
        static Store* const instance = new Store;
        return *instance;
    }
    static void record(const char* file, const char* function, NSString* tag, int level, int line,
                       NSString* message) {
        const std::scoped_lock guard(store().mutex);
        store().lines.push_back(
            {file, function, tag->UTF8String(), level, line, message->UTF8String()});
    }
};

/// A line of the library: its own tag, a real source line, and what is given here.
MATCHER_P4(IsLogLine, file, function, level, message,
           std::string(negation ? "is not" : "is") + " the level " + std::to_string(level) +
               " line \"" + std::string(message) + "\" of " + std::string(function)) {
    return arg.file == file && arg.function == function && arg.level == level &&
           arg.message == message && arg.tag == "TQAudioRecord" && arg.line > 0;
}
