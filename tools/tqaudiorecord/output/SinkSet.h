#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/Sink.h"

namespace tqrecorder {

/// Several sinks as one, served in the order they were added.
class SinkSet : public Sink {
  public:
    template <typename Kind>
    Kind& add(std::unique_ptr<Kind> sink) {
        Kind& added = *sink;
        sinks_.push_back(std::move(sink));
        return added;
    }

    void processBegan(const Process& process) override;
    void block(const Process& process, const Block& block) override;
    void lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) override;
    void event(const Process& process, const Event& event) override;
    void log(const Process& process, const LogLine& line) override;
    void stream(const Process& process, const StreamFacts& facts) override;
    void numbers(const Process& process, std::span<const TrackNumbers> tracks,
                 const HostFacts& facts, double ringFill) override;
    void seen(const SeenProcess& process) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void tick(std::uint64_t elapsedMicroseconds) override;
    [[nodiscard]] bool isSaving() override;
    void giveUpSaves() override;
    void finish() override;
    [[nodiscard]] std::string reasonToEnd() const override;
    [[nodiscard]] std::vector<std::string> problems() const override;

  private:
    std::vector<std::unique_ptr<Sink>> sinks_;
};

}  // namespace tqrecorder
