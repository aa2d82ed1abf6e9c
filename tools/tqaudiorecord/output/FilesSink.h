#pragma once

#include <vector>

#include "core/Sink.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// The format of every mix.
inline constexpr BlockFormat kMixFormat{44100, 2, 16, false};
/// Headers are brought up to date that often; a killed recorder costs no more than that.
inline constexpr std::uint64_t kRefreshMicroseconds = 500'000;

/// A sink that writes sound files.
class FilesSink : public Sink {
  public:
    /// Those written so far, those of the first process first.
    [[nodiscard]] virtual std::vector<WrittenFile> files() const = 0;

    void tick(std::uint64_t elapsedMicroseconds) override {
        if (elapsedMicroseconds >= nextRefresh_) {
            nextRefresh_ = elapsedMicroseconds + kRefreshMicroseconds;
            refresh();
        }
    }

  protected:
    virtual void refresh() = 0;

  private:
    std::uint64_t nextRefresh_ = 0;
};

}  // namespace tqrecorder
