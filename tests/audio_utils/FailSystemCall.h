#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

/// From now on the system call fails with EIO in this process, for good; with a word given only
/// when its first argument ends in that word. For children that a test can spare.
inline void FailSystemCall(long number, std::optional<std::uint32_t> firstArgument = {}) {
    constexpr auto kNumber = static_cast<std::uint32_t>(offsetof(seccomp_data, nr));
    constexpr auto kArgument = static_cast<std::uint32_t>(offsetof(seccomp_data, args));
    const unsigned char otherArgument = firstArgument ? 1 : 0;
    std::array<sock_filter, 6> code{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, kNumber},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, static_cast<std::uint32_t>(number)},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, kArgument},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, otherArgument, firstArgument.value_or(0)},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EIO},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::perror("seccomp");
        std::_Exit(2);
    }
}
