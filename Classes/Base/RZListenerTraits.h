#pragma once

#include <type_traits>

// Optional methods of listeners: a class implements a method when it declares it itself, public,
// which shows in the type of the pointer to it. An inherited one still has the base's type.

/// Whether `Own` is a member of `Derived` or of a base of it with the signature of `Inherited`.
template <class Derived, class Own, class Inherited>
struct RZOverrides : std::false_type {};
template <class Derived, class Own, class Protocol, class Result, class... Arguments>
struct RZOverrides<Derived, Own, Result (Protocol::*)(Arguments...)>
    : std::is_convertible<Own, Result (Derived::*)(Arguments...)> {};

/// True when `Own`, the type of `&Derived::method`, is not the type of the protocol's own member.
/// Refuses to compile when it is, by another signature, no override of it: the method would never
/// be called.
template <class Derived, class Own, class Inherited>
[[nodiscard]] constexpr bool isMethodImplemented() {
    static_assert(RZOverrides<Derived, Own, Inherited>::value,
                  "a listener's method must have the very signature of the protocol");
    return !std::is_same_v<Own, Inherited>;
}
