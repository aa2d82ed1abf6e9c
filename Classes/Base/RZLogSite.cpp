#include "RZLogSite.h"

#include "TQAudioRecordLog.h"
#include "TQAudioRecordLogList.h"

std::string rz_format::withoutArguments(const char* format) {
    std::string text;
    for (const char* c = format; *c != '\0'; ++c) {
        text += *c;
        if (*c == '%' && c[1] == '%') {
            ++c;
        }
    }
    return text;
}

bool RZLogSite::isObserved() noexcept {
    return isTQAudioRecordLogObserved();
}

void RZLogSite::write(int level, int line, const std::string& message) const {
    static const auto& tag = *new NSRef<NSString>(NSString::create("TQAudioRecord"));
    if (isObserved()) {
        const NSRef<NSString> text = NSString::create(message);
        TQAudioRecordLog(file_, function_, tag.get(), level, line, text.get());
    }
}
