#include "RZReplayAudioRecorderDelegate.h"

#include <gtest/gtest.h>

namespace {

using Public = RZReplayAudioRecorderDelegate::Method;
using Inner = RZReplayAudioRecorderInternalDelegate::Method;

class Nothing : public RZReplayAudioRecorderListener<Nothing> {};

class PcmOnly : public RZReplayAudioRecorderListener<PcmOnly> {
  public:
    void onAudioReceivePCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
};

class Everything : public RZReplayAudioRecorderListener<Everything> {
  public:
    void onAudioReceivePCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
    void onAudioRecordEvent(std::uint64_t, std::uint64_t, const std::string&) override {}
    std::uint64_t getPCMDataType() override { return 3; }
};

/// Adds to a listener that it derives from.
class PcmAndMask : public RZReplayAudioRecorderListener<PcmAndMask, PcmOnly> {
  public:
    std::uint64_t getPCMDataType() override { return 2; }
};

// What the compiler is asked about each method: an override, inherited, or of another signature.
struct Shapes : Nothing {
    void onAudioReceivePCM(AudioBufferList*, const RZReplayASBDInfo&) noexcept override {}
    int otherPCM(AudioBufferList*, const RZReplayASBDInfo&) { return 0; }
    void constPCM(AudioBufferList*, const RZReplayASBDInfo&) const {}
};
using Inherited = decltype(&RZReplayAudioRecorderDelegate::onAudioReceivePCM);
static_assert(RZOverrides<PcmOnly, decltype(&PcmOnly::onAudioReceivePCM), Inherited>::value);
static_assert(RZOverrides<Nothing, decltype(&Nothing::onAudioReceivePCM), Inherited>::value);
static_assert(
    RZOverrides<Shapes, void (Shapes::*)(AudioBufferList*, const RZReplayASBDInfo&) noexcept,
                Inherited>::value);
static_assert(!RZOverrides<Shapes, decltype(&Shapes::otherPCM), Inherited>::value);
static_assert(!RZOverrides<Shapes, decltype(&Shapes::constPCM), Inherited>::value);

class InnerNothing : public RZReplayAudioRecorderInternalListener<InnerNothing> {};

class InnerPostOnly : public RZReplayAudioRecorderInternalListener<InnerPostOnly> {
  public:
    void onAudioReceivePostPCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
};

class InnerEverything : public RZReplayAudioRecorderInternalListener<InnerEverything> {
  public:
    void onAudioReceivePrePCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
    void onAudioReceivePostPCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
    void onAudioRecordEvent(std::uint64_t, std::uint64_t, const std::string&) override {}
    std::int32_t getPCMDataType() override { return 3; }
};

}  // namespace

TEST(RZReplayAudioRecorderDelegateTest, MaskBitsAreOneAndTwo) {
    EXPECT_EQ(1U, RZPCMDataTypePre);
    EXPECT_EQ(2U, RZPCMDataTypePost);
}

TEST(RZReplayAudioRecorderDelegateTest, ListenerRespondsToWhatItDeclares) {
    const Nothing nothing;
    const PcmOnly pcmOnly;
    const Everything everything;
    for (const Public method :
         {Public::onAudioReceivePCM, Public::onAudioRecordEvent, Public::getPCMDataType}) {
        EXPECT_FALSE(nothing.respondsTo(method));
        EXPECT_TRUE(everything.respondsTo(method));
        EXPECT_EQ(method == Public::onAudioReceivePCM, pcmOnly.respondsTo(method));
    }
}

TEST(RZReplayAudioRecorderDelegateTest, ListenerOfAListenerRespondsToBothTheirMethods) {
    PcmAndMask both;
    RZReplayAudioRecorderDelegate& asked = both;
    EXPECT_TRUE(asked.respondsTo(Public::onAudioReceivePCM));
    EXPECT_TRUE(asked.respondsTo(Public::getPCMDataType));
    EXPECT_FALSE(asked.respondsTo(Public::onAudioRecordEvent));
    EXPECT_EQ(asked.getPCMDataType(), 2U);
}

TEST(RZReplayAudioRecorderDelegateTest, InnerListenerRespondsToWhatItDeclares) {
    const InnerNothing nothing;
    const InnerPostOnly postOnly;
    const InnerEverything everything;
    for (const Inner method : {Inner::onAudioReceivePrePCM, Inner::onAudioReceivePostPCM,
                               Inner::onAudioRecordEvent, Inner::getPCMDataType}) {
        EXPECT_FALSE(nothing.respondsTo(method));
        EXPECT_TRUE(everything.respondsTo(method));
        EXPECT_EQ(method == Inner::onAudioReceivePostPCM, postOnly.respondsTo(method));
    }
}

TEST(RZReplayAudioRecorderDelegateTest, UnknownMethodIsNotThere) {
    EXPECT_FALSE(Everything().respondsTo(static_cast<Public>(99)));
    EXPECT_FALSE(InnerEverything().respondsTo(static_cast<Inner>(99)));
}

TEST(RZReplayAudioRecorderDelegateTest, MissingMethodsCanBeCalledAllTheSame) {
    Nothing nothing;
    const RZReplayASBDInfo info;
    nothing.onAudioReceivePCM(nullptr, info);
    nothing.onAudioRecordEvent(0, 0, "");
    EXPECT_EQ(1U, nothing.getPCMDataType());
    InnerNothing inner;
    inner.onAudioReceivePrePCM(nullptr, info);
    inner.onAudioReceivePostPCM(nullptr, info);
    inner.onAudioRecordEvent(0, 0, "");
    EXPECT_EQ(1, inner.getPCMDataType());
}
