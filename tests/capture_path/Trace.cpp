#include "Trace.h"

#include <regex>

#include "TQAudioRecordLog.h"

namespace {

std::mutex& mutex() {
    static auto* const instance = new std::mutex;
    return *instance;
}
std::vector<std::string>& lines() {
    static auto* const instance = new std::vector<std::string>;
    return *instance;
}

void add(std::string line) {
    const std::scoped_lock guard(mutex());
    lines().push_back(std::move(line));
}

void addRecord(const char* /*file*/, const char* function, NSString* /*tag*/, int level,
               int /*line*/, NSString* message) {
    add("log " + std::to_string(level) + " " + function + " " + message->UTF8String());
}

void addCall(const PlatformCalls::Call& call) {
    std::string text = "call " + call.name + "(" + pointerText(call.object);
    for (const long number : call.numbers) {
        text += ", " + std::to_string(number);
    }
    add(text + ")");
}

/// A pointer's text ends where its last digit does: 0x10 is no part of 0x100.
void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        const std::size_t end = at + from.size();
        if (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end])) != 0) {
            at = end;
        } else {
            text.replace(at, from.size(), to);
            at += to.size();
        }
    }
}

}  // namespace

void Trace::EventListener::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                              const std::string& message) {
    add("event " + std::to_string(category) + "/" + std::to_string(code) + " " + message);
}

void Trace::SetUp() {
    CapturePath::SetUp();
    platform.watch("", addCall);
    TQAudioRecordRegisterYLogCallback(addRecord);
    take();
}

void Trace::TearDown() {
    collect().stopAudioStreamCollect(events);
    drainRecorder();
    TQAudioRecordUnregisterYLogCallback(addRecord);
    platform.watch("", {});
    CapturePath::TearDown();
}

void Trace::name(const void* address, const std::string& name) {
    names_[pointerText(address)] = name;
}

std::vector<std::string> Trace::take() {
    std::vector<std::string> taken;
    {
        const std::scoped_lock guard(mutex());
        taken.swap(lines());
    }
    for (std::string& line : taken) {
        for (const auto& [address, name] : names_) {
            replaceAll(line, address, name);
        }
        // What has no name differs from run to run.
        static const std::regex unnamed("0x[0-9a-f]{2,}");
        line = std::regex_replace(line, unnamed, "*");
    }
    return taken;
}
