#include <sys/mman.h>

#include <array>
#include <cstring>
#include <functional>

#include "BufferLists.h"
#include "RZReplayVolumeController.h"
#include "RenderFixture.h"
#include "TQAudioCaptureBase.h"

// Hosts that put memory of their own into the buffer list, and blocks that the device does not
// play.

namespace {

using testing::Each;
using testing::SizeIs;

/// A table of one sound that nobody may write to.
template <class Sample>
class ConstantTable {
  public:
    explicit ConstantTable(Sample value)
        : memory_(
              mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        std::fill_n(static_cast<Sample*>(memory_), kBytes / sizeof(Sample), value);
        mprotect(memory_, kBytes, PROT_READ);
    }
    ~ConstantTable() { munmap(memory_, kBytes); }
    ConstantTable(const ConstantTable&) = delete;
    ConstantTable& operator=(const ConstantTable&) = delete;
    [[nodiscard]] void* get() const { return memory_; }

  private:
    static constexpr std::size_t kBytes = 16384;
    void* memory_;
};

/// A host whose callback or notify is a function of the test's.
struct HostMemory : RenderCallbacks {
    using Render = std::function<OSStatus(AudioUnitRenderActionFlags&, UInt32, AudioBufferList&)>;
    Render render;
    RZReplayVolumeController controller;

    static OSStatus call(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp*,
                         UInt32, UInt32 frames, AudioBufferList* list) {
        return static_cast<HostMemory*>(self)->render(*flags, frames, *list);
    }
    static OSStatus callAfterRender(void* self, AudioUnitRenderActionFlags* flags,
                                    const AudioTimeStamp*, UInt32, UInt32 frames,
                                    AudioBufferList* list) {
        if ((*flags & kAudioUnitRenderAction_PostRender) != 0) {
            static_cast<HostMemory*>(self)->render(*flags, frames, *list);
        }
        return 0;
    }
    void TearDown() override {
        const RZReplayVolumeDuckingParam noDucking(NO);
        controller.enableDucking(&noDucking);
        RenderCallbacks::TearDown();
    }
    void play(const AudioStreamBasicDescription& format) {
        ASSERT_EQ(host().setFormat(format), 0);
        const AURenderCallbackStruct callback{call, this};
        ASSERT_EQ(AudioUnitSetProperty(host().unit(), kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
                  0);
        ASSERT_EQ(host().initialize(), 0);
        ASSERT_EQ(host().start(), 0);
    }
    void captureNow(std::uint64_t mask) {
        listener = std::make_shared<CaptureListener>(mask);
        ASSERT_TRUE(startCapture());
    }
    /// Down to a tenth, after so many slices that it is reached.
    void duck() {
        const RZReplayVolumeDuckingParam ducking(YES);
        ASSERT_EQ(controller.enableDucking(&ducking), 0);
        slices(1);
        ASSERT_EQ(controller.updateDuckingVolume(0, YES), 0);
        slices(300);
    }
    /// One call of the callback that stands in for the host's.
    void callOnce(AudioBufferList* list) {
        AudioUnitRenderActionFlags flags = 0;
        const AudioTimeStamp now{};
        ASSERT_EQ(RZReplayAudioUnitCapture_InputProcessCallback(host().unit(), &flags, &now, 0,
                                                                kSlice, list),
                  0);
    }
};

TEST_F(HostMemory, IsNotDuckedButWhatIsPlayed) {
    const Speaker speaker;
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = table.get();
        return 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    captureNow(3);
    duck();
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
    EXPECT_NEAR(listener->mixes().back().samples()[200], 8192, 4) << "pre as rendered";
    EXPECT_NEAR(listener->posts().back().samples()[200], 819, 70) << "post as played";
}

TEST_F(HostMemory, ThatStandsForBothChannelsIsDuckedOnceForEach) {
    const Speaker speaker;
    const ConstantTable<float> table(0.25F);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = list.mBuffers[1].mData = table.get();
        return 0;
    };
    play(stream_formats::floatPlanar(44100, 2));
    duck();
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
}

TEST_F(HostMemory, ThePlatformsOwnForBothChannelsIsDuckedOnceForEach) {
    const Speaker speaker;
    render = [&](auto&, UInt32 frames, AudioBufferList& list) {
        std::fill_n(static_cast<float*>(list.mBuffers[0].mData), frames, 0.25F);
        list.mBuffers[1].mData = list.mBuffers[0].mData;
        return 0;
    };
    play(stream_formats::floatPlanar(44100, 2));
    captureNow(2);
    duck();
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
    EXPECT_EQ(listener->posts().back().samples(0), listener->posts().back().samples(1));
}

TEST_F(HostMemory, PutInByANotifyIsNotDuckedButWhatIsPlayed) {
    const Speaker speaker;
    const ConstantTable<float> table(0.25F);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = list.mBuffers[1].mData = table.get();
        return 0;
    };
    host().prepare(kAudioUnitScope_Output);
    ASSERT_EQ(AudioUnitAddRenderNotify(host().unit(), callAfterRender, this), 0);
    ASSERT_EQ(host().start(), 0);
    duck();
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
}

TEST_F(HostMemory, OfAHostThatAsksForNoOtherIsNotDuckedButWhatIsPlayed) {
    const Speaker speaker;
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        EXPECT_EQ(list.mBuffers[0].mData, nullptr);
        list.mBuffers[0].mData = table.get();
        return 0;
    };
    const UInt32 no = 0;
    ASSERT_EQ(AudioUnitSetProperty(host().unit(), kAudioUnitProperty_ShouldAllocateBuffer,
                                   kAudioUnitScope_Input, 0, &no, sizeof no),
              0);
    play(stream_formats::int16Interleaved(44100, 2));
    duck();
    EXPECT_NEAR(speaker.level(), 0.025, 0.002);
}

TEST_F(HostMemory, IsReadWhereItLiesWhileNothingIsProcessed) {
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = table.get();
        return 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    callOnce(list.get());
    EXPECT_EQ(list.buffer().mData, table.get());
}

TEST_F(HostMemory, OfAFormatThatCannotBeProcessedIsReadWhereItLies) {
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = table.get();
        return 0;
    };
    AudioStreamBasicDescription format = stream_formats::int16Interleaved(44100, 2);
    format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    play(format);
    duck();
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    callOnce(list.get());
    EXPECT_EQ(list.buffer().mData, table.get());
}

TEST_F(HostMemory, ThatClaimsToBeHugeIsReadAsFarAsTheBlockGoes) {
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0] = {2, 0x40000000, table.get()};
        return 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    duck();
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    callOnce(list.get());
    EXPECT_EQ(list.buffer().mDataByteSize, kSliceBytes);
}

// The platform reads behind the callback, when another thread may have uninitialised the unit. The
// address sanitizer sees it where the values do not tell.
TEST_F(HostMemory, WhatStandsForItIsThereWhenTheCaptureObjectHasGone) {
    const ConstantTable<std::int16_t> table(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        list.mBuffers[0].mData = table.get();
        return 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    duck();
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    const void* const own = list.buffer().mData;
    callOnce(list.get());
    ASSERT_NE(list.buffer().mData, table.get());
    ASSERT_NE(list.buffer().mData, own);
    const std::weak_ptr<RZReplayAudioUnitObject> object = host().object();
    host().dispose();
    ASSERT_TRUE(object.expired());
    EXPECT_THAT(list.copyOf<std::int16_t>(),
                Each(testing::AllOf(testing::Gt(749), testing::Lt(889))));
}

/// What a callback has left where it failed: loud, of no size, gone, or somebody else's.
struct Leftover {
    const char* name;
    void (*leave)(AudioBufferList&);
};

void PrintTo(const Leftover& one, std::ostream* out) {
    *out << one.name;
}

struct FailedBlocks : HostMemory, testing::WithParamInterface<Leftover> {};

TEST_P(FailedBlocks, AreRecordedAsTheSilenceThatTheDevicePlays) {
    const Speaker speaker;
    int calls = 0;
    render = [&](auto&, UInt32 frames, AudioBufferList& list) {
        std::fill_n(static_cast<std::int16_t*>(list.mBuffers[0].mData), 2 * frames,
                    std::int16_t{8192});
        const bool isFailure = calls++ % 2 != 0;
        if (isFailure) {
            GetParam().leave(list);
        }
        return isFailure ? -1 : 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    captureNow(3);
    listener->clear();
    const std::uint64_t before = manager().frameSums(0).pre.delivered;
    std::vector<bool> isPlayed;
    for (int i = 0; i < 12; ++i) {
        slices(1);
        isPlayed.push_back(speaker.level() > 0);
    }
    ASSERT_THAT(isPlayed, testing::ElementsAre(1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0));
    const auto posts = listener->posts();
    const auto mixes = listener->mixes();
    ASSERT_THAT(posts, SizeIs(11)) << "all but the one that is thrown away at the start";
    for (std::size_t i = 0; i < posts.size(); ++i) {
        EXPECT_THAT(posts[i].samples(), Each(isPlayed[i + 1] ? 8192 : 0)) << i;
        EXPECT_EQ(mixes[i + 1].isSilent(), !isPlayed[i + 1]) << i;
    }
    EXPECT_THAT(listener->events(), testing::IsEmpty());
    EXPECT_EQ(manager().frameSums(0).pre.delivered, before + 12 * kSlice);
}

INSTANTIATE_TEST_SUITE_P(
    Leaving, FailedBlocks,
    testing::Values(Leftover{"Sound", [](AudioBufferList&) {}},
                    Leftover{"NoSize",
                             [](AudioBufferList& list) { list.mBuffers[0].mDataByteSize = 0; }},
                    Leftover{"NoData", [](AudioBufferList& list) { list.mBuffers[0] = {}; }},
                    Leftover{"NoBuffer", [](AudioBufferList& list) { list.mNumberBuffers = 0; }}),
    [](const auto& test) { return test.param.name; });

TEST_F(HostMemory, OfAFailedBlockIsNotProcessed) {
    bool isFailure = false;
    std::array<std::int16_t, std::size_t{kSlice} * 2> own{};
    own.fill(8192);
    render = [&](auto&, UInt32, AudioBufferList& list) {
        std::memcpy(list.mBuffers[0].mData, own.data(), sizeof own);
        return isFailure ? -1 : 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    duck();
    isFailure = true;
    auto list = OwnedBufferList::interleaved(2, kSliceBytes);
    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp now{};
    EXPECT_EQ(RZReplayAudioUnitCapture_InputProcessCallback(host().unit(), &flags, &now, 0, kSlice,
                                                            list.get()),
              -1);
    EXPECT_THAT(list.copyOf<std::int16_t>(), Each(8192));
}

/// Sources that say that they are silent clear the bits, whatever that means in their format.
TEST_F(HostMemory, SilentBlocksOfUnsignedSamplesAreRecordedAsTheSilenceThatTheDevicePlays) {
    const Speaker speaker;
    render = [&](AudioUnitRenderActionFlags& flags, UInt32 frames, AudioBufferList& list) {
        std::memset(list.mBuffers[0].mData, 0, 2 * frames);
        flags |= kAudioUnitRenderAction_OutputIsSilence;
        return 0;
    };
    AudioStreamBasicDescription format = stream_formats::int16Interleaved(44100, 2);
    format.mFormatFlags &= ~AudioFormatFlags{kAudioFormatFlagIsSignedInteger};
    format.mBitsPerChannel = 8;
    format.mBytesPerFrame = format.mBytesPerPacket = 2;
    play(format);
    captureNow(3);
    slices(5);
    EXPECT_EQ(speaker.level(), 0.0F);
    ASSERT_THAT(listener->posts(), SizeIs(4));
    EXPECT_THAT(listener->posts().back().buffers.at(0), Each(std::byte{0x80}));
    EXPECT_TRUE(listener->mixes().back().isSilent());
}

TEST_F(HostMemory, BlocksThatAreNotSilentThoughTheySaySoAreRecordedAsPlayed) {
    const Speaker speaker;
    render = [&](AudioUnitRenderActionFlags& flags, UInt32 frames, AudioBufferList& list) {
        std::fill_n(static_cast<std::int16_t*>(list.mBuffers[0].mData), 2 * frames,
                    std::int16_t{8192});
        flags |= kAudioUnitRenderAction_OutputIsSilence;
        return 0;
    };
    play(stream_formats::int16Interleaved(44100, 2));
    captureNow(2);
    slices(5);
    EXPECT_NEAR(speaker.level(), 0.25, 0.001);
    EXPECT_THAT(listener->posts().back().samples(), Each(8192));
}

}  // namespace
