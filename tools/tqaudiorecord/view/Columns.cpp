#include "view/Columns.h"

#include <clocale>
#include <cwchar>

namespace tqrecorder {
namespace {

/// The C library knows letters by the thread's locale, and a terminal may show UTF-8 whatever the
/// user's is.
class Letters {
  public:
    Letters()
        : own_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)),
          before_(own_ == nullptr ? nullptr : uselocale(own_)) {}
    ~Letters() {
        if (own_ != nullptr) {
            uselocale(before_);
            freelocale(own_);
        }
    }
    Letters(const Letters&) = delete;
    Letters& operator=(const Letters&) = delete;

    struct Letter {
        std::size_t bytes = 1;
        std::size_t columns = 1;
    };
    /// The first of a text that is not empty.
    [[nodiscard]] static Letter first(std::string_view text) {
        std::mbstate_t state{};
        wchar_t letter = 0;
        const std::size_t bytes = std::mbrtowc(&letter, text.data(), text.size(), &state);
        if (bytes == 0 || bytes > text.size()) {
            return {};
        }
        const int columns = wcwidth(letter);
        return {bytes, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
    }

  private:
    locale_t own_;
    locale_t before_;
};

/// The bytes of the letters that fit, and their columns.
Letters::Letter fitting(std::string_view text, std::size_t most) {
    const Letters letters;
    Letters::Letter all{0, 0};
    while (all.bytes < text.size()) {
        const Letters::Letter next = Letters::first(text.substr(all.bytes));
        if (all.columns + next.columns > most) {
            break;
        }
        all.bytes += next.bytes;
        all.columns += next.columns;
    }
    return all;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
    return fitting(text, static_cast<std::size_t>(-1)).columns;
}

std::string cutToWidth(std::string_view text, std::size_t columns) {
    return std::string(text.substr(0, fitting(text, columns).bytes));
}

}  // namespace tqrecorder
