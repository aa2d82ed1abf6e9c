#include "AtomicProperty.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>

TEST(AtomicPropertyTest, StartsWithItsDefaultOrTheGivenValue) {
    EXPECT_EQ(0, AtomicProperty<int>().load());
    EXPECT_EQ(5, AtomicProperty<int>(5).load());
}

TEST(AtomicPropertyTest, LoadAnswersWhatWasStored) {
    AtomicProperty<std::string> property;
    property.store("text");
    EXPECT_EQ("text", property.load());
}

TEST(AtomicPropertyTest, StoreLetsTheOldValueGo) {
    AtomicProperty<std::shared_ptr<int>> property(std::make_shared<int>(1));
    const std::weak_ptr<int> old = property.load();
    property.store(nullptr);
    EXPECT_TRUE(old.expired());
}

TEST(AtomicPropertyTest, OldValueMayComeBackToThePropertyFromItsDestructor) {
    struct Reader {
        AtomicProperty<std::shared_ptr<Reader>>* property = nullptr;
        ~Reader() {
            if (property != nullptr) {
                EXPECT_EQ(nullptr, property->load());
            }
        }
    };
    AtomicProperty<std::shared_ptr<Reader>> property(std::make_shared<Reader>());
    property.load()->property = &property;
    property.store(nullptr);
    EXPECT_EQ(nullptr, property.load());
}

TEST(AtomicPropertyTest, WithLooksAtTheValueInPlace) {
    AtomicProperty<std::shared_ptr<int>> property(std::make_shared<int>(7));
    EXPECT_EQ(1, property.with([](const auto& value) { return value.use_count(); }));
}

TEST(AtomicPropertyTest, ReadersNeverSeeHalfAValue) {
    struct Wide {
        std::array<int, 16> parts{};
    };
    AtomicProperty<Wide> property;
    std::atomic<bool> isDone{false};
    std::thread writer([&] {
        for (int n = 1; n <= 20000; ++n) {
            Wide value;
            value.parts.fill(n);
            property.store(value);
        }
        isDone = true;
    });
    bool isWhole = true;
    while (!isDone) {
        const Wide value = property.load();
        for (const int part : value.parts) {
            isWhole = isWhole && part == value.parts[0];
        }
    }
    writer.join();
    EXPECT_TRUE(isWhole);
    EXPECT_EQ(20000, property.load().parts[0]);
}
