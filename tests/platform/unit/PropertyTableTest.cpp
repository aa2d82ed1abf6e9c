#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PlatformFixture.h"

// Every answer to every question about properties: each kind of unit, new and initialised, each id,
// scopes and elements within and beyond what there is, each size of a value. What stands in
// property_answers.txt was recorded; run with TQ_RECORD_ANSWERS=1 to record anew.

namespace platform {
namespace {

struct Kind {
    const char* name;
    AudioComponentDescription description;
};

const Kind kKinds[] = {
    {"remoteIO", remoteIO()},
    {"voiceIO", description(kAudioUnitType_Output, kAudioUnitSubType_VoiceProcessingIO)},
    {"genericOutput", genericOutput()},
    {"mixer", mixer()},
    {"converter", converter()},
};

constexpr AudioUnitPropertyID kIds[] = {
    0,    1,    2,    3,    4,    5,    6,    8,    11,   12,   13,   14,   19,   20,   21,
    22,   23,   26,   29,   30,   32,   36,   37,   40,   51,   54,   61,   2000, 2001, 2002,
    2003, 2004, 2005, 2006, 2007, 2100, 2101, 2103, 2104, 3006, 3007, 3014, 9999};
constexpr AudioUnitScope kScopes[] = {0, 1, 2, 3, 4, 77};
constexpr AudioUnitElement kElements[] = {0, 1, 2, 8};
constexpr UInt32 kSizes[] = {1, 4, 8, 16, 35, 36, 40, 64};

std::string nameOf(OSStatus status) {
    switch (status) {
        case noErr:
            return "ok";
        case kAudioUnitErr_InvalidProperty:
            return "property";
        case kAudioUnitErr_InvalidScope:
            return "scope";
        case kAudioUnitErr_InvalidElement:
            return "element";
        case kAudioUnitErr_InvalidPropertyValue:
            return "value";
        case kAudioUnitErr_PropertyNotWritable:
            return "unwritable";
        case kAudioUnitErr_Initialized:
            return "initialised";
        case kAudioUnitErr_FormatNotSupported:
            return "format";
        default:
            return std::to_string(status);
    }
}

/// A value that a unit could take, behind zeros so that any size can be read.
std::vector<std::byte> plausible(AudioUnitPropertyID id, AudioUnit source) {
    std::vector<std::byte> bytes(64);
    const auto put = [&](const auto& value) { std::memcpy(bytes.data(), &value, sizeof value); };
    AudioStreamBasicDescription format{};
    format.mSampleRate = 32000;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    format.mBytesPerPacket = format.mBytesPerFrame = 4;
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = 2;
    format.mBitsPerChannel = 16;
    switch (id) {
        case kAudioUnitProperty_StreamFormat:
            put(format);
            break;
        case kAudioUnitProperty_SampleRate:
            put(Float64{32000});
            break;
        case kAudioUnitProperty_MakeConnection:
            put(AudioUnitConnection{source, 0, 0});
            break;
        case kAudioUnitProperty_SetRenderCallback:
        case kAudioOutputUnitProperty_SetInputCallback:
            put(AURenderCallbackStruct{Callback::proc, nullptr});
            break;
        default:
            put(UInt32{1});
    }
    return bytes;
}

/// One unit's answers to all that can be asked at one place.
std::string answersAt(const Kind& kind, bool isInitialised, AudioUnitPropertyID id,
                      AudioUnitScope scope, AudioUnitElement element, AudioUnit source) {
    const auto fresh = [&](const auto& ask) {
        const OwnedUnit unit(kind.description);
        if (isInitialised) {
            EXPECT_EQ(AudioUnitInitialize(unit), noErr);
        }
        return ask(AudioUnit{unit});
    };
    UInt32 size = 0;
    Boolean isWritable = 0;
    const OSStatus info = fresh([&](AudioUnit unit) {
        return AudioUnitGetPropertyInfo(unit, id, scope, element, &size, &isWritable);
    });
    std::ostringstream answers;
    answers << "info " << nameOf(info);
    if (info == noErr) {
        answers << ' ' << size << (isWritable != 0 ? " rw" : " r");
    }
    const auto get = [&](UInt32 wanted, void* data) {
        const OSStatus status = fresh([&](AudioUnit unit) {
            return AudioUnitGetProperty(unit, id, scope, element, data, &wanted);
        });
        answers << ' ' << nameOf(status);
        if (status == noErr) {
            answers << ' ' << wanted;
        }
    };
    std::byte data[64];
    answers << "; get";
    get(64, data);
    answers << ", short";
    get(1, data);
    answers << ", size";
    get(0, nullptr);
    // Runs of sizes with one answer are written once, by the smallest.
    const auto sets = [&](const char* what, const std::vector<std::byte>& value) {
        answers << "; " << what;
        std::string before;
        for (const UInt32 bytes : kSizes) {
            const std::string now = nameOf(fresh([&](AudioUnit unit) {
                return AudioUnitSetProperty(unit, id, scope, element, value.data(), bytes);
            }));
            if (now != before) {
                answers << ' ' << bytes << ':' << now;
            }
            before = now;
        }
    };
    answers << "; remove " << nameOf(fresh([&](AudioUnit unit) {
        return AudioUnitSetProperty(unit, id, scope, element, nullptr, 0);
    }));
    sets("set", plausible(id, source));
    sets("zeros", std::vector<std::byte>(64));
    return answers.str();
}

/// For each property its different answers, and below each who gives it where (scope/element).
/// Units with a star are initialised.
std::string allAnswers() {
    const OwnedUnit source(mixer());
    std::ostringstream text;
    for (const AudioUnitPropertyID id : kIds) {
        std::map<std::string, std::map<std::string, std::string>> lines;  // answers, places, units
        for (const Kind& kind : kKinds) {
            for (const bool isInitialised : {false, true}) {
                std::map<std::string, std::string> here;
                for (const AudioUnitScope scope : kScopes) {
                    for (const AudioUnitElement element : kElements) {
                        here[answersAt(kind, isInitialised, id, scope, element, source)] +=
                            ' ' + std::to_string(scope) + '/' + std::to_string(element);
                    }
                }
                for (const auto& [answers, places] : here) {
                    lines[answers][here.size() == 1 ? " anywhere" : places] +=
                        std::string(" ") + kind.name + (isInitialised ? "*" : "");
                }
            }
        }
        text << "property " << id << '\n';
        for (const auto& [answers, places] : lines) {
            text << "  " << answers << '\n';
            for (const auto& [where, who] : places) {
                text << "   " << who << " at" << where << '\n';
            }
        }
    }
    return text.str();
}

TEST(PropertyTable, AnswersAreThoseThatWereRecorded) {
    const std::string now = allAnswers();
    if (std::getenv("TQ_RECORD_ANSWERS") != nullptr) {
        std::ofstream(TQ_PROPERTY_ANSWERS) << now;
    }
    std::ifstream file(TQ_PROPERTY_ANSWERS);
    const std::string recorded{std::istreambuf_iterator<char>(file), {}};
    std::istringstream were(recorded), are(now);
    std::string was, is, property;
    while (std::getline(were, was)) {
        std::getline(are, is);
        property = was.starts_with("property") ? was : property;
        ASSERT_EQ(is, was) << "at " << property;
    }
    EXPECT_EQ(now, recorded);
}

}  // namespace
}  // namespace platform
