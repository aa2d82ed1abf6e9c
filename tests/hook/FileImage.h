#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hook/elf/ElfImage.h"

/// A library's file laid out as the loader would, in memory that ends at an unmapped page: one
/// byte read too far is a crash. Nothing in it is relocated.
class FileImage {
  public:
    explicit FileImage(const std::string& path);
    /// The first `size` bytes of another image, its segments cut accordingly.
    FileImage(const FileImage& whole, std::size_t size);
    ~FileImage();
    FileImage(const FileImage&) = delete;
    FileImage& operator=(const FileImage&) = delete;

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::uint8_t* bytes() const { return bytes_; }
    [[nodiscard]] const tqhook::ImageLayout& layout() const { return layout_; }
    tqhook::ImageLayout& layout() { return layout_; }
    /// The entry of the dynamic table with this tag, null when there is none.
    [[nodiscard]] ElfW(Dyn) * dynamicEntry(ElfW(Sxword) tag) const;

  private:
    void allocate(std::size_t size);

    std::size_t size_ = 0;
    std::size_t mapped_ = 0;
    void* mapping_ = nullptr;
    std::uint8_t* bytes_ = nullptr;
    tqhook::ImageLayout layout_;
};
