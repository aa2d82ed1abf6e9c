// draw_picture: waveform and spectrogram of a mix and its tracks as one PNG.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "picture/Picture.h"

namespace {

constexpr int kUsageError = 1;
constexpr int kFailure = 2;

constexpr char kUsage[] =
    "usage: draw_picture [--linear] [--title TEXT] [--width PIXELS] [--event SECONDS:LABEL]...\n"
    "                    [--events FILE] MIX.wav OUT.png [TRACK.wav ...]\n"
    "FILE holds one event a line: SECONDS, a tab, the label.\n";

bool parseEvent(const std::string& text, char separator, tqpicture::EventMark& event) {
    const std::size_t colon = text.find(separator);
    const char* end = text.data() + std::min(colon, text.size());
    const auto result = std::from_chars(text.data(), end, event.seconds);
    if (colon == std::string::npos || result.ec != std::errc{} || result.ptr != end) {
        return false;
    }
    event.label = text.substr(colon + 1);
    return true;
}

bool readEvents(const std::string& path, std::vector<tqpicture::EventMark>& events,
                std::string& error) {
    std::ifstream file(path);
    if (!file) {
        error = "cannot read " + path;
        return false;
    }
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        tqpicture::EventMark event;
        if (!parseEvent(line, '\t', event)) {
            error = path + ", line " + std::to_string(number) + ": no seconds and label";
            return false;
        }
        events.push_back(event);
    }
    return true;
}

bool parseWidth(const std::string& text, int& width) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, width);
    return result.ec == std::errc{} && result.ptr == end;
}

struct Request {
    tqpicture::Options options;
    std::vector<std::string> files;
    std::vector<std::string> eventFiles;
};

bool parse(int argc, char** argv, Request& request) {
    bool optionsEnded = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (optionsEnded || argument.empty() || argument[0] != '-') {
            request.files.push_back(argument);
        } else if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "--linear") {
            request.options.frequencyAxis = tqpicture::FrequencyAxis::kLinear;
        } else if (index + 1 < argc && argument == "--title") {
            request.options.title = argv[++index];
        } else if (index + 1 < argc && argument == "--width") {
            if (!parseWidth(argv[++index], request.options.width)) {
                return false;
            }
        } else if (index + 1 < argc && argument == "--event") {
            tqpicture::EventMark event;
            if (!parseEvent(argv[++index], ':', event)) {
                return false;
            }
            request.options.events.push_back(event);
        } else if (index + 1 < argc && argument == "--events") {
            request.eventFiles.emplace_back(argv[++index]);
        } else {
            return false;
        }
    }
    return request.files.size() >= 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    Request request;
    if (!parse(argc, argv, request)) {
        std::fputs(kUsage, stderr);
        return kUsageError;
    }
    std::vector<tqpicture::Track> tracks;
    for (std::size_t index = 0; index < request.files.size(); ++index) {
        if (index != 1) {
            const std::string& path = request.files[index];
            tracks.push_back({std::filesystem::path(path).stem().string(), path, 0});
        }
    }
    std::string error;
    bool drawn = true;
    for (const std::string& path : request.eventFiles) {
        drawn = drawn && readEvents(path, request.options.events, error);
    }
    if (!drawn || !tqpicture::drawPicture(tracks, request.files[1], request.options, error)) {
        std::fprintf(stderr, "draw_picture: %s\n", error.c_str());
        return kFailure;
    }
    return 0;
}
