#pragma once

#include <Foundation/NSString.h>

#include <string>

/// A printf-style format (with %@ for std::string) that remembers the line it stands on.
struct RZLogFormat {
    // Implicit, so that a call site is nothing but its level, format and arguments. The builtin
    // rather than std::source_location, which not every compiler has yet.
    RZLogFormat(const char* format, int lineNumber = __builtin_LINE())
        : text(format), line(lineNumber) {}
    const char* text;
    int line;
};

namespace rz_format {
inline NSRef<NSString> hold(const std::string& text) {
    return NSString::create(text);
}
template <class T>
T hold(T value) {
    return value;
}
inline const NSString* pass(const NSRef<NSString>& text) {
    return text.get();
}
template <class T>
T pass(T value) {
    return value;
}
/// A format that came as data and has no arguments: only a doubled % sign means anything.
std::string withoutArguments(const char* format);
}  // namespace rz_format

/// [any thread] Allocates. The text of a message; std::string arguments print with %@.
template <class... Arguments>
std::string RZFormat(const char* format, const Arguments&... arguments) {
    if constexpr (sizeof...(arguments) == 0) {
        return rz_format::withoutArguments(format);
    } else {
        return NSFormat(format, rz_format::pass(rz_format::hold(arguments))...);
    }
}

/// Where a function logs from: its source file as the records spell it, and its own name. Every
/// function here is [any thread] and formats nothing while nobody listens.
class RZLogSite {
  public:
    constexpr RZLogSite(const char* file, const char* function)
        : file_(file), function_(function) {}

    /// Formats and logs one line.
    template <class... Arguments>
    void log(int level, RZLogFormat format, const Arguments&... arguments) const {
        if (isObserved()) {
            write(level, format.line, RZFormat(format.text, arguments...));
        }
    }
    /// Logs a finished message.
    void write(int level, int line, const std::string& message) const;

  private:
    static bool isObserved() noexcept;

    const char* file_;
    const char* function_;
};
