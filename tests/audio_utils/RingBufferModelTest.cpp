#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "ring_buffer.h"

namespace korva_audio_utils {
namespace {

/// The single-threaded ring in its plainest form: element by element, no copies in runs.
class PlainRing {
  public:
    PlainRing(std::size_t capacity, std::size_t ceiling) : slots_(capacity), ceiling_(ceiling) {}

    std::size_t Used() const { return (write_ + slots_.size() - read_) % slots_.size(); }
    std::size_t Write(const std::vector<std::uint16_t>& values) {
        const std::size_t count = values.size();
        const std::size_t available = slots_.size() - 1 - Used();
        if (available + (ceiling_ - slots_.size()) < count) {
            return 0;
        }
        if (available < count && !Grow(count)) {
            return 0;
        }
        for (const std::uint16_t value : values) {
            slots_[write_] = value;
            write_ = (write_ + 1) % slots_.size();
        }
        return count;
    }
    std::vector<std::uint16_t> Read(std::size_t count) {
        std::vector<std::uint16_t> values;
        if (Used() < count) {
            return values;
        }
        for (std::size_t k = 0; k < count; ++k) {
            values.push_back(slots_[read_]);
            read_ = (read_ + 1) % slots_.size();
        }
        return values;
    }
    bool Grow(std::size_t count) {
        if (slots_.size() >= ceiling_ || Used() + count > ceiling_) {
            return false;
        }
        std::size_t grown = slots_.size();
        do {
            grown = std::min(2 * grown, ceiling_);
        } while (grown < Used() + count);
        if (write_ < read_) {
            const std::size_t used = Used();
            std::rotate(slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(read_),
                        slots_.end());
            read_ = 0;
            write_ = used;
        }
        slots_.resize(grown);
        return true;
    }
    void Clean() { read_ = write_ = 0; }

    std::size_t ReadIndex() const { return read_; }
    std::size_t WriteIndex() const { return write_; }
    std::size_t Capacity() const { return slots_.size(); }

  private:
    std::vector<std::uint16_t> slots_;
    std::size_t ceiling_;
    std::size_t read_ = 0;
    std::size_t write_ = 0;
};

class RingBufferModelTest : public testing::TestWithParam<unsigned> {};

TEST_P(RingBufferModelTest, RandomCallsGiveTheSameResultsIndicesAndDataAsThePlainRing) {
    std::mt19937 random(GetParam());
    const auto below = [&](std::size_t end) { return random() % end; };
    for (int round = 0; round < 60; ++round) {
        const std::size_t capacity = 1 + below(20);
        const std::size_t ceiling = capacity + below(80);
        RingBuffer ring;
        ASSERT_EQ(ring.Init(capacity, sizeof(std::uint16_t), ceiling), 0);
        PlainRing plain(capacity, ceiling);
        std::uint16_t next = 1;
        for (int step = 0; step < 300; ++step) {
            const std::size_t count = below(1 + ring.Capacity());
            const std::size_t action = below(40);
            if (action == 0) {
                ring.CleanBufferOnWrite();
                plain.Clean();
            } else if (action == 1) {
                ASSERT_EQ(ring.ExpandBuffer(count), plain.Grow(count));
            } else if (action < 22) {
                std::vector<std::uint16_t> values(count);
                std::generate(values.begin(), values.end(), [&] { return next++; });
                ASSERT_EQ(ring.WriteBuffer(values.data(), count), plain.Write(values));
            } else {
                std::vector<std::uint16_t> values(count + 1);
                void* out = nullptr;
                const bool zeroCopy = action >= 32;
                const std::size_t got =
                    ring.ReadBuffer(zeroCopy ? &out : nullptr, values.data(), count);
                if (zeroCopy && got != 0) {
                    std::copy_n(static_cast<std::uint16_t*>(out), got, values.begin());
                }
                values.resize(got);
                ASSERT_EQ(values, plain.Read(count));
            }
            ASSERT_EQ(ring.ReadIndex(), plain.ReadIndex());
            ASSERT_EQ(ring.WriteIndex(), plain.WriteIndex());
            ASSERT_EQ(ring.Capacity(), plain.Capacity());
            ASSERT_EQ(ring.AvailableRead(), plain.Used());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RingBufferModelTest, testing::Range(1U, 6U));

}  // namespace
}  // namespace korva_audio_utils
