#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace tqcommon {

/// A value that host threads replace as a whole while render threads read it. Readers never
/// wait; a replaced value is freed by a host thread once no reader can have it any more.
template <class T>
class Published {
  public:
    /// [any thread] [real-time safe] Holds the value of the moment; null when there is none.
    class Reader {
      public:
        explicit Reader(const Published& published) noexcept : published_(published) {
            // Both sides in one total order: a writer that sees no reader after its store knows
            // that every later reader sees the new value.
            published_.readers_.fetch_add(1, std::memory_order_seq_cst);
            value_ = published_.current_.load(std::memory_order_seq_cst);
        }
        ~Reader() { published_.readers_.fetch_sub(1, std::memory_order_seq_cst); }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        [[nodiscard]] const T* get() const noexcept { return value_; }
        const T* operator->() const noexcept { return value_; }
        const T& operator*() const noexcept { return *value_; }
        explicit operator bool() const noexcept { return value_ != nullptr; }

      private:
        const Published& published_;
        const T* value_;
    };

    Published() = default;
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    /// [one host thread at a time] Replaces the value; what was there before is freed now or by
    /// a later call. Throws std::bad_alloc with nothing changed.
    void publish(std::unique_ptr<const T> value) {
        if (owned_) {
            retired_.reserve(retired_.size() + 1);
        }
        current_.store(value.get(), std::memory_order_seq_cst);
        if (owned_) {
            retired_.push_back(std::move(owned_));
        }
        owned_ = std::move(value);
        collect();
    }

    /// [one host thread at a time] Frees replaced values now, unless readers may still have them.
    void collect() noexcept {
        if (readers_.load(std::memory_order_seq_cst) == 0) {
            retired_.clear();
        }
    }

    /// [one host thread at a time] The value as its owner sees it.
    [[nodiscard]] const T* owned() const noexcept { return owned_.get(); }

  private:
    mutable std::atomic<unsigned> readers_{0};
    std::atomic<const T*> current_{nullptr};
    std::unique_ptr<const T> owned_;
    std::vector<std::unique_ptr<const T>> retired_;
};

}  // namespace tqcommon
