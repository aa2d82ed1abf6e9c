#pragma once

#include <type_traits>

// Optional methods of listeners: a class implements a method when it declares it itself, public,
// which shows in the type of the pointer to it. An inherited one still has the base's type.

/// True unless both are pointers to the very same inherited member.
template <class Own, class Inherited>
inline constexpr bool isMethodImplemented = !std::is_same_v<Own, Inherited>;
