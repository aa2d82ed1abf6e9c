#pragma once

/// Marks a function, a virtual or a function type of the render path: it neither allocates, waits,
/// throws nor calls the system. Compilers that can check it do (-Wfunction-effects); for the others
/// the allocation counter of the tests does. Stands behind the parameter list, where noexcept does.
#if defined(__has_cpp_attribute)
#if __has_cpp_attribute(clang::nonblocking)
#define TQ_NONBLOCKING [[clang::nonblocking]]
#endif
#endif
#ifndef TQ_NONBLOCKING
#define TQ_NONBLOCKING
#endif
