#include <Foundation/NSString.h>

#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <optional>
#include <system_error>

namespace {

/// A va_list is an array on one machine and a struct on the other; only inside a struct can it
/// be handed on by reference and stay in step on both.
struct Arguments {
    std::va_list list;
};

enum class Length { none, hh, h, l, ll, j, z, t, longDouble };

/// One conversion as it stands in the format.
struct Conversion {
    std::string_view text;  ///< from the percent sign to the conversion letter
    std::string flags;
    std::optional<int> width;
    std::optional<int> precision;
    bool widthIsArgument = false;
    bool precisionIsArgument = false;
    Length length = Length::none;
    char letter = '\0';
};

class Parser {
  public:
    explicit Parser(std::string_view rest) : rest_(rest) {}

    /// Reads the conversion at the start of `rest`; empty when it is cut off or no letter of a
    /// known conversion ends it.
    std::optional<Conversion> parse() {
        static constexpr std::string_view kFlags = "-+ #0'I";
        static constexpr std::string_view kLetters = "diouxXeEfFgGaAcCsSpnm@%";
        Conversion result;
        while (kFlags.find(peek()) != std::string_view::npos) {
            result.flags.push_back(take());
        }
        if (!number(result.width, result.widthIsArgument)) {
            return std::nullopt;
        }
        if (peek() == '.') {
            take();
            if (!number(result.precision, result.precisionIsArgument)) {
                return std::nullopt;
            }
            if (!result.precision && !result.precisionIsArgument) {
                result.precision = 0;
            }
        }
        result.length = length();
        if (kLetters.find(peek()) == std::string_view::npos) {
            return std::nullopt;
        }
        result.letter = take();
        result.text = rest_.substr(0, position_);
        return result;
    }

  private:
    /// The terminator is part of no set of characters above, so the end needs no case of its own.
    [[nodiscard]] char peek() const { return position_ < rest_.size() ? rest_[position_] : '\0'; }
    char take() { return rest_[position_++]; }
    bool accept(char wanted) {
        if (peek() != wanted) {
            return false;
        }
        ++position_;
        return true;
    }

    /// Nothing, a star, or digits. False when the digits exceed an int.
    bool number(std::optional<int>& value, bool& isArgument) {
        if (accept('*')) {
            isArgument = true;
            return true;
        }
        if (peek() < '0' || peek() > '9') {
            return true;
        }
        int digits = 0;
        const char* const begin = rest_.data() + position_;
        const auto [end, error] = std::from_chars(begin, rest_.data() + rest_.size(), digits);
        position_ += static_cast<std::size_t>(end - begin);
        value = digits;
        return error == std::errc{};
    }

    Length length() {
        if (accept('h')) {
            return accept('h') ? Length::hh : Length::h;
        }
        if (accept('l')) {
            return accept('l') ? Length::ll : Length::l;
        }
        if (accept('q')) {
            return Length::ll;
        }
        if (accept('j')) {
            return Length::j;
        }
        if (accept('z')) {
            return Length::z;
        }
        if (accept('t')) {
            return Length::t;
        }
        return accept('L') ? Length::longDouble : Length::none;
    }

    std::string_view rest_;
    std::size_t position_ = 1;  // behind the percent sign
};

class Formatter {
  public:
    Formatter(std::string& out, Arguments& arguments, int savedError)
        : out_(out), arguments_(arguments), savedError_(savedError) {}

    void convert(Conversion conversion) {
        fetchNumbers(conversion);
        switch (conversion.letter) {
            case '%':
                out_.push_back('%');
                return;
            case 'd':
            case 'i':
                return convertSigned(conversion);
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                return convertUnsigned(conversion);
            case 'c':
            case 'C':
                if (conversion.letter == 'C' || conversion.length == Length::l) {
                    return append(conversion, "l", 'c', va_arg(arguments_.list, std::wint_t));
                }
                return append(conversion, "", 'c', va_arg(arguments_.list, int));
            case 's':
            case 'S':
                if (conversion.letter == 'S' || conversion.length == Length::l) {
                    return append(conversion, "l", 's', va_arg(arguments_.list, const wchar_t*));
                }
                return append(conversion, "", 's', va_arg(arguments_.list, const char*));
            case 'p':
                return convertPointer(conversion, va_arg(arguments_.list, const void*));
            case '@':
                return convertObject(conversion, va_arg(arguments_.list, const NSString*));
            case 'n':
                // Writing through an argument is nothing that a message should be able to do.
                static_cast<void>(va_arg(arguments_.list, void*));
                return;
            case 'm':
                return appendText(conversion, std::system_category().message(savedError_));
            default:
                return convertFloating(conversion);
        }
    }

  private:
    /// Reads what stars stand for, in the order in which they were written, and brings widths to
    /// what a text can sensibly have.
    void fetchNumbers(Conversion& conversion) {
        if (conversion.widthIsArgument) {
            const int width = va_arg(arguments_.list, int);
            if (width < 0) {
                conversion.flags.push_back('-');
            }
            conversion.width = std::abs(std::max(width, -kMaximumField));
        }
        if (conversion.precisionIsArgument) {
            const int precision = va_arg(arguments_.list, int);
            if (precision >= 0) {
                conversion.precision = precision;
            }
        }
        if (conversion.width) {
            conversion.width = std::min(*conversion.width, kMaximumField);
        }
        // A precision makes numbers longer but texts only shorter.
        static constexpr std::string_view kTexts = "sS@m";
        if (conversion.precision && kTexts.find(conversion.letter) == std::string_view::npos) {
            conversion.precision = std::min(*conversion.precision, kMaximumField);
        }
    }

    void convertSigned(const Conversion& conversion) {
        const char letter = conversion.letter;
        switch (conversion.length) {
            case Length::hh:
                return append(conversion, "hh", letter, va_arg(arguments_.list, int));
            case Length::h:
                return append(conversion, "h", letter, va_arg(arguments_.list, int));
            case Length::l:
                return append(conversion, "l", letter, va_arg(arguments_.list, long));
            case Length::ll:
            case Length::longDouble:
                return append(conversion, "ll", letter, va_arg(arguments_.list, long long));
            case Length::j:
                return append(conversion, "j", letter, va_arg(arguments_.list, std::intmax_t));
            case Length::z:
                return append(conversion, "z", letter, va_arg(arguments_.list, ssize_t));
            case Length::t:
                return append(conversion, "t", letter, va_arg(arguments_.list, std::ptrdiff_t));
            case Length::none:
                break;
        }
        append(conversion, "", letter, va_arg(arguments_.list, int));
    }

    void convertUnsigned(const Conversion& conversion) {
        const char letter = conversion.letter;
        switch (conversion.length) {
            case Length::hh:
                return append(conversion, "hh", letter, va_arg(arguments_.list, unsigned));
            case Length::h:
                return append(conversion, "h", letter, va_arg(arguments_.list, unsigned));
            case Length::l:
                return append(conversion, "l", letter, va_arg(arguments_.list, unsigned long));
            case Length::ll:
            case Length::longDouble:
                return append(conversion, "ll", letter,
                              va_arg(arguments_.list, unsigned long long));
            case Length::j:
                return append(conversion, "j", letter, va_arg(arguments_.list, std::uintmax_t));
            case Length::z:
                return append(conversion, "z", letter, va_arg(arguments_.list, std::size_t));
            case Length::t:
                return append(conversion, "t", letter, va_arg(arguments_.list, std::size_t));
            case Length::none:
                break;
        }
        append(conversion, "", letter, va_arg(arguments_.list, unsigned));
    }

    void convertFloating(const Conversion& conversion) {
        if (conversion.length == Length::longDouble) {
            append(conversion, "L", conversion.letter, va_arg(arguments_.list, long double));
        } else {
            append(conversion, "", conversion.letter, va_arg(arguments_.list, double));
        }
    }

    void convertPointer(Conversion& conversion, const void* pointer) {
        if (pointer != nullptr) {
            append(conversion, "", 'p', pointer);
            return;
        }
        // The C library says "(nil)".
        conversion.precision.reset();
        appendText(conversion, "0x0");
    }

    void convertObject(const Conversion& conversion, const NSString* object) {
        appendText(conversion, object != nullptr
                                   ? std::string_view(object->UTF8String(), object->length())
                                   : std::string_view("(null)"));
    }

    /// Text with the width and the precision that %s would obey; it may hold zero bytes.
    void appendText(const Conversion& conversion, std::string_view text) {
        if (conversion.precision) {
            text = text.substr(0, static_cast<std::size_t>(*conversion.precision));
        }
        const std::size_t width = static_cast<std::size_t>(conversion.width.value_or(0));
        const std::string padding(width > text.size() ? width - text.size() : 0, ' ');
        const bool left = conversion.flags.find('-') != std::string::npos;
        out_.append(left ? "" : padding).append(text).append(left ? padding : "");
    }

    /// One value through the C library.
    template <class Value>
    void append(const Conversion& conversion, const char* length, char letter, Value value) {
        std::string format = "%" + conversion.flags;
        if (conversion.width) {
            format += std::to_string(*conversion.width);
        }
        if (conversion.precision) {
            format += "." + std::to_string(*conversion.precision);
        }
        format += length;
        format += letter;

        char brief[128];
        const int needed = std::snprintf(brief, sizeof brief, format.c_str(), value);
        if (needed < 0) {
            // A wide character has no bytes in this locale.
            out_.append(conversion.text);
            return;
        }
        const std::size_t size = static_cast<std::size_t>(needed);
        if (size < sizeof brief) {
            out_.append(brief, size);
            return;
        }
        const std::size_t before = out_.size();
        out_.resize(before + size + 1);
        std::snprintf(out_.data() + before, size + 1, format.c_str(), value);
        out_.resize(before + size);
    }

    static constexpr int kMaximumField = 1'000'000;

    std::string& out_;
    Arguments& arguments_;
    int savedError_;
};

}  // namespace

std::string NSFormatWithArguments(const char* format, std::va_list arguments) {
    const int savedError = errno;
    std::string out;
    if (format == nullptr) {
        return out;
    }
    Arguments copy;
    va_copy(copy.list, arguments);
    Formatter formatter(out, copy, savedError);
    std::string_view rest = format;
    while (!rest.empty()) {
        const std::size_t percent = std::min(rest.find('%'), rest.size());
        out.append(rest.substr(0, percent));
        rest.remove_prefix(percent);
        if (rest.empty()) {
            break;
        }
        if (std::optional<Conversion> conversion = Parser(rest).parse()) {
            rest.remove_prefix(conversion->text.size());
            formatter.convert(std::move(*conversion));
        } else {
            out.push_back('%');
            rest.remove_prefix(1);
        }
    }
    va_end(copy.list);
    errno = savedError;
    return out;
}

std::string NSFormat(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::string out = NSFormatWithArguments(format, arguments);
    va_end(arguments);
    return out;
}
