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

std::atomic<LogHandler> g_log_handler_{nullptr};

std::size_t CheckedLength(int length) {
    if (length < 0) {
        throw std::system_error(errno, std::generic_category(), "log message");
    }
    return static_cast<std::size_t>(length);
}

}  // namespace

void setLogHandler(LogHandler handler) noexcept {
    g_log_handler_.store(handler, std::memory_order_release);
}

void log(LogPriority priority, const char* tag, const char* format, ...) {
    const LogHandler handler = g_log_handler_.load(std::memory_order_acquire);
    if (handler == nullptr) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int measured = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);

    const std::size_t size = CheckedLength(measured) + 1;
    const auto text = std::make_unique<char[]>(size);
    va_start(arguments, format);
    const int written = std::vsnprintf(text.get(), size, format, arguments);
    va_end(arguments);
    CheckedLength(written);
    handler(priority, tag, text.get());
}

}  // namespace korva_audio_utils
