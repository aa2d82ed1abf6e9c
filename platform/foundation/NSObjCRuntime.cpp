#include <Foundation/NSObjCRuntime.h>
#include <Foundation/NSString.h>
#include <cxxabi.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>

std::string NSStringFromClass(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return readable != nullptr ? readable.get() : type.name();
}

void NSLog(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string line = NSFormatWithArguments(format, arguments);
    va_end(arguments);
    syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
}
