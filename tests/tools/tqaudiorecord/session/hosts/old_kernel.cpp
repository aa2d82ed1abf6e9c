// Runs a program as on a kernel older than 5.3, which gives nobody a descriptor of a process.
//
//   old_kernel PROGRAM ARG...

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

int main(int count, char** arguments) {
    constexpr int kNotAllowed = 126;
    constexpr int kNotFound = 127;
    std::array<sock_filter, 4> code{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_pidfd_open},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | ENOSYS},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    }};
    const sock_fprog filter{static_cast<unsigned short>(code.size()), code.data()};
    if (count < 2 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        return kNotAllowed;
    }
    execv(arguments[1], arguments + 1);
    return kNotFound;
}
