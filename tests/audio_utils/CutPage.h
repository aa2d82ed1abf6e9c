#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

namespace korva_audio_utils {

inline const auto kPage = static_cast<std::size_t>(getpagesize());

/// A page of a file that has no bytes any more.
inline volatile char* CutPage() {
    const int fd = memfd_create("cut", MFD_CLOEXEC);
    EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(kPage)), 0);
    void* const data = ::mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    EXPECT_NE(data, MAP_FAILED);
    EXPECT_EQ(::ftruncate(fd, 0), 0);
    ::close(fd);
    return static_cast<volatile char*>(data);
}

inline void* Address(volatile char* page) {
    return const_cast<char*>(page);
}

}  // namespace korva_audio_utils
