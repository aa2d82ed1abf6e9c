#include "RZUnitFacts.h"

#include <gtest/gtest.h>

#include "RZUnitNames.h"

namespace {

/// Handles are only compared.
const void* handleOf(std::uintptr_t number) {
    return reinterpret_cast<const void*>(number);
}

struct NamesThatAreUsedUp : testing::Test {
    RZUnitFacts facts;
    const void* const first = handleOf(16);
    const void* const second = handleOf(32);

    std::uint32_t ordinalOf(const void* unit) {
        return facts.started(unit, nullptr, 1, RZUnitReason::Captured).ordinal;
    }
    /// Of units that come and go, until the next one gets `ordinal`.
    void useUpTo(std::uint32_t ordinal) {
        const void* const passing = handleOf(48);
        do {
            facts.made(passing);
        } while (ordinalOf(passing) + 1 < ordinal);
    }
};

// High numbers, because names stay for the process, and other tests' units have the low ones.
constexpr std::uint32_t kFirstOrdinal = RZUnitNames::kMost - 10;
constexpr std::uint32_t kSamePlace = kFirstOrdinal + RZUnitNames::kMost;

TEST(RZUnitFactsTest, AUnitIsTheSameUntilItsHandleIsGivenOutAgain) {
    RZUnitFacts facts;
    const void* const unit = handleOf(16);
    const auto start = [&] {
        return facts.started(unit, nullptr, 1, RZUnitReason::Captured).ordinal;
    };
    EXPECT_EQ(start(), 1U);
    facts.disposed(unit);
    EXPECT_EQ(start(), 1U);
    facts.made(unit);
    EXPECT_EQ(start(), 2U);
}

TEST(RZUnitFactsTest, AStreamsUnitThatWasUninitialisedIsAnotherOne) {
    RZUnitFacts facts;
    const void* const unit = handleOf(16);
    facts.named(unit, "alsa-1");
    const auto first = facts.started(unit, nullptr, 1, RZUnitReason::Captured).ordinal;
    facts.disposed(unit);
    facts.named(unit, "alsa-1");
    EXPECT_NE(facts.started(unit, nullptr, 1, RZUnitReason::Captured).ordinal, first);
}

TEST(RZUnitFactsTest, AUnitThatPlaysKeepsItsNameHoweverManyComeAndGo) {
    RZUnitFacts facts;
    const void* const music = handleOf(16);
    facts.created(music, 1);
    ASSERT_EQ(facts.started(music, nullptr, 1, RZUnitReason::Captured).ordinal, 1U);
    for (std::uintptr_t i = 0; i < 1000; ++i) {
        const void* const sound = handleOf(32 + i);
        facts.created(sound, 2);
        static_cast<void>(facts.started(sound, nullptr, 2, RZUnitReason::Captured));
        facts.disposed(sound);
    }
    EXPECT_EQ(facts.started(music, nullptr, 1, RZUnitReason::Captured).ordinal, 1U);
}

TEST_F(NamesThatAreUsedUp, MakeNoOtherUnitOfAStreamThatKeepsItsName) {
    useUpTo(kFirstOrdinal);
    facts.named(first, "alsa-1");
    ASSERT_EQ(ordinalOf(first), kFirstOrdinal);
    useUpTo(kSamePlace);

    facts.named(second, "alsa-2");
    ASSERT_EQ(ordinalOf(second), kSamePlace);
    ASSERT_EQ(RZUnitNames::shared().of(kSamePlace), nullptr);

    facts.named(second, "alsa-2");
    EXPECT_EQ(ordinalOf(second), kSamePlace);
    facts.named(second, "alsa-3");
    EXPECT_NE(ordinalOf(second), kSamePlace);
}

}  // namespace
