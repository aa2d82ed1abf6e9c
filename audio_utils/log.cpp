#include "log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <system_error>

namespace korva_audio_utils {

namespace {

std::atomic<LogHandler> logHandler{nullptr};

std::size_t CheckedLength(int length) {
    if (length < 0) {
        throw std::system_error(errno, std::generic_category(), "log message");
    }
    return static_cast<std::size_t>(length);
}

}  // namespace

void setLogHandler(LogHandler handler) noexcept {
    logHandler.store(handler, std::memory_order_release);
}

void log(LogPriority priority, const char* tag, const char* format, ...) {
    const LogHandler handler = logHandler.load(std::memory_order_acquire);
    if (handler == nullptr) {
        return;
    }
    std::va_list measured;
    va_start(measured, format);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);

    const std::size_t size = CheckedLength(length) + 1;
    const auto text = std::make_unique<char[]>(size);
    std::va_list formatted;
    va_start(formatted, format);
    const int written = std::vsnprintf(text.get(), size, format, formatted);
    va_end(formatted);
    CheckedLength(written);
    handler(priority, tag, text.get());
}

}  // namespace korva_audio_utils
