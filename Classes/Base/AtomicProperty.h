#pragma once

#include <spin_lock.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

/// [any thread] A property that control threads set and render threads read, for values too large
/// for a machine word.
///
/// This form is for values that own something. Invariant: value_ changes only under the spin lock,
/// which a reader holds for one copy (of a shared pointer: one increment) and a writer for one
/// swap. For shared pointers isNull_ is stored with release order behind the value and loaded with
/// acquire order before the lock, so that reading an empty property takes no lock.
template <class T>
class AtomicProperty {
  public:
    AtomicProperty() = default;
    explicit AtomicProperty(T value) { store(std::move(value)); }

    [[nodiscard]] T load() const {
        if (isNull()) {
            return T{};
        }
        const std::scoped_lock guard(lock_);
        return value_;
    }
    /// The old value is destroyed with the parameter, after the lock: no reader waits for a
    /// destructor.
    void store(T value) {
        const std::scoped_lock guard(lock_);
        using std::swap;
        swap(value_, value);
        if constexpr (kIsPointer) {
            isNull_.store(value_ == nullptr, std::memory_order_release);
        }
    }
    /// Calls `look` with the value in place, under the lock, for readers that need no copy. `look`
    /// must be short and must not use this property.
    template <class Look>
    auto with(Look&& look) const {
        if (isNull()) {
            return look(T{});
        }
        const std::scoped_lock guard(lock_);
        return look(value_);
    }

  private:
    template <class U>
    static constexpr bool isSharedPointer(const std::shared_ptr<U>* /*type*/) {
        return true;
    }
    static constexpr bool isSharedPointer(const void* /*type*/) { return false; }
    static constexpr bool kIsPointer = isSharedPointer(static_cast<const T*>(nullptr));

    /// Read without the lock: most properties are null most of the time.
    [[nodiscard]] bool isNull() const {
        return kIsPointer && isNull_.load(std::memory_order_acquire);
    }

    mutable korva_audio_utils::SpinLock lock_;
    std::atomic<bool> isNull_{kIsPointer};
    T value_{};
};

/// [any thread] The form for plain values: a sequence lock, whose readers store nothing.
///
/// Invariant: an even version means that the words are one whole value. Writers exclude each other
/// with the spin lock; a writer makes the version odd, stores the words and makes it even again.
/// Each word is stored with release order, so no reader sees a new word under the old version, and
/// loaded with acquire order, so a reader's second look at the version comes after its words. The
/// last store of the version, with release order, publishes the words. A reader that saw an odd or
/// a changed version copies again.
template <class T>
requires std::is_trivially_copyable_v<T>
class AtomicProperty<T> {
  public:
    AtomicProperty() { store(T{}); }
    explicit AtomicProperty(const T& value) { store(value); }

    [[nodiscard]] T load() const {
        for (;;) {
            const std::uint32_t before = version_.load(std::memory_order_acquire);
            std::array<std::uint64_t, kWords> words;
            for (std::size_t i = 0; i < kWords; ++i) {
                words[i] = words_[i].load(std::memory_order_acquire);
            }
            if (before % 2 == 0 && version_.load(std::memory_order_relaxed) == before) {
                T value;
                std::memcpy(static_cast<void*>(&value), words.data(), sizeof value);
                return value;
            }
        }
    }
    void store(const T& value) {
        std::array<std::uint64_t, kWords> words{};
        std::memcpy(words.data(), &value, sizeof value);
        const std::scoped_lock guard(lock_);
        const std::uint32_t version = version_.load(std::memory_order_relaxed);
        version_.store(version + 1, std::memory_order_relaxed);
        for (std::size_t i = 0; i < kWords; ++i) {
            words_[i].store(words[i], std::memory_order_release);
        }
        version_.store(version + 2, std::memory_order_release);
    }
    template <class Look>
    auto with(Look&& look) const {
        return look(load());
    }

  private:
    static constexpr std::size_t kWords = (sizeof(T) + 7) / 8;

    korva_audio_utils::SpinLock lock_;  ///< writers only
    std::atomic<std::uint32_t> version_{0};
    std::array<std::atomic<std::uint64_t>, kWords> words_{};
};
