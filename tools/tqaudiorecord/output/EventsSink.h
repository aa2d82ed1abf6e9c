#pragma once

#include <string>
#include <vector>

#include "core/Sink.h"

namespace tqrecorder {

/// Writes events as JSON, one object a line: host_time_us, category, code, message, process, pid,
/// kind, text.
/// A line is on the disk as soon as its event has come.
class EventsSink : public Sink {
  public:
    explicit EventsSink(std::string path);
    ~EventsSink() override;
    EventsSink(const EventsSink&) = delete;
    EventsSink& operator=(const EventsSink&) = delete;

    /// Makes or empties the file. False with a line in problems().
    [[nodiscard]] bool open();

    void event(const Process& process, const Event& event) override;
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override { return problems_; }

    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    void fail(int error);

    std::string path_;
    int file_ = -1;
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
