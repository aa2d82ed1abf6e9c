#pragma once

// A redirected function, declared once: which function it is, what runs in its place, and where the
// function that ran before is kept. A library lists its hooks in a table and hands the table's rows
// to tqhook_rebind():
//
//     constexpr tqhook::HookTable kHooks{
//         tqhook::hook<&getppid>([](auto* original) { return original() + 1; }),
//     };
//     const auto rows = kHooks.rows();
//     tqhook_rebind(rows.data(), rows.size(), nullptr);
//
// All of it is constant-initialised, so redirected calls may arrive before the constructors of the
// library that holds the table have run.

#include <array>
#include <cstddef>
#include <string_view>

#include "hook/tq_hook.h"

namespace tqhook {

/// A text as a template's argument.
template <std::size_t kSize>
struct Text {
    consteval Text(const char (&text)[kSize]) {  // NOLINT: a literal stands for itself
        for (std::size_t i = 0; i < kSize; ++i) {
            characters[i] = text[i];
        }
    }
    char characters[kSize]{};
};

namespace detail {

/// The function's name, out of the compiler's spelling of this very instance.
template <auto* kFunction>
consteval std::string_view spelledName() {
    constexpr std::string_view kMark = "kFunction = ";
    std::string_view text = __PRETTY_FUNCTION__;
    text.remove_prefix(text.find(kMark) + kMark.size());
    if (text.front() == '&') {
        text.remove_prefix(1);
    }
    return text.substr(0, text.find_first_of(";]"));
}

template <auto* kFunction, Text kPrefix>
consteval auto prefixedName() {
    constexpr std::string_view kName = spelledName<kFunction>();
    static_assert(kName.find_first_of(":(<* ") == std::string_view::npos,
                  "only functions with C linkage are called by their plain names");
    constexpr std::size_t kPrefixLength = sizeof kPrefix.characters - 1;
    std::array<char, kPrefixLength + kName.size() + 1> name{};
    for (std::size_t i = 0; i < kPrefixLength; ++i) {
        name[i] = kPrefix.characters[i];
    }
    for (std::size_t i = 0; i < kName.size(); ++i) {
        name[kPrefixLength + i] = kName[i];
    }
    return name;
}

}  // namespace detail

/// The name of a function with C linkage, a prefix in front of it: kNameOf<&getppid, "our_">.
template <auto* kFunction, Text kPrefix = "">
inline constexpr auto kNameOf = detail::prefixedName<kFunction, kPrefix>();

/// The hook of one function. `Body` is a function object without state; it is called on the
/// caller's thread with the function that ran before and with the arguments, and its result is the
/// caller's. Hooks of one function with different bodies keep separate previous functions.
template <auto* kFunction, class Body, class Function = decltype(kFunction)>
class Hook;

template <auto* kFunction, class Body, class Result, class... Arguments, bool kIsNoexcept>
class Hook<kFunction, Body, Result (*)(Arguments...) noexcept(kIsNoexcept)> {
  public:
    /// The row of the table. `Record` has the members of tqhook_rebinding, in their order.
    template <class Record = tqhook_rebinding>
    [[nodiscard]] static Record row() {
        return {kNameOf<kFunction>.data(), reinterpret_cast<void*>(&replacement),
                reinterpret_cast<void**>(&original)};
    }

  private:
    using Function = Result (*)(Arguments...);

    static Result replacement(Arguments... arguments) noexcept(kIsNoexcept) {
        return Body{}(original, arguments...);
    }

    // Written by the rebinding before any caller can reach the replacement.
    static inline constinit Function original = nullptr;
};

/// Declares a hook by a lambda without captures: hook<&function>([](auto* original, ...) {...}).
template <auto* kFunction, class Body>
constexpr Hook<kFunction, Body> hook(Body /*body*/) {
    return {};
}

/// Hooks that are installed together, in this order.
template <class... Hooks>
class HookTable {
  public:
    constexpr explicit HookTable(Hooks... /*hooks*/) {}

    template <class Record = tqhook_rebinding>
    [[nodiscard]] static std::array<Record, sizeof...(Hooks)> rows() {
        return {Hooks::template row<Record>()...};
    }
};

}  // namespace tqhook
