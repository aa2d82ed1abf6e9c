#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/Descriptor.h"

namespace tqrecorder {

/// Writes to a terminal, pipe or file whose reader may be slow, and never waits for it: what it
/// does not take is kept in order, up to a bound. [one host thread at a time]
class ScreenWriter {
  public:
    /// `descriptor` stays the caller's, and so do its flags: it is shared with other programs.
    explicit ScreenWriter(int descriptor);

    /// False when more than the bound already waits. What has been put is whole lines.
    [[nodiscard]] bool hasRoom() const { return waiting_.size() < kMostBytes; }
    /// Whether anything waits.
    [[nodiscard]] bool isBehind() const { return !waiting_.empty(); }
    /// Keeps the text and writes what can be written at once. The bound is the caller's to heed.
    void put(std::string_view text);
    /// Writes what can be written at once.
    void pump();
    /// Bytes that were written so far.
    [[nodiscard]] std::uint64_t written() const { return written_; }
    /// Waits for the reader as long as it takes something every few seconds. False when it did not;
    /// what waited is then dropped, and the number of its lines added to `lost`.
    bool settle(unsigned long long& lost);

    static constexpr std::size_t kMostBytes = std::size_t{256} << 10U;

  private:
    enum class Way { kPlain, kNonBlocking, kSocket, kPolled };
    /// Less than 0 when it would have to wait; 0 when nobody reads any more.
    [[nodiscard]] long writeSome(std::string_view text) const;

    int descriptor_;
    tqcommon::Descriptor own_;
    Way way_ = Way::kPlain;
    std::string waiting_;
    std::uint64_t written_ = 0;
};

}  // namespace tqrecorder
