#pragma once

#include <vector>

#include "hook/elf/ElfImage.h"

namespace tqhook {

/// How many images the loader has added and taken away so far.
struct LoaderCounts {
    unsigned long long adds = 0;
    unsigned long long subs = 0;

    [[nodiscard]] bool operator==(const LoaderCounts&) const = default;
};

/// [host thread] One step of the loader's list, under its lock: some tens of nanoseconds.
[[nodiscard]] LoaderCounts loaderCounts();

struct LoadedImages {
    LoaderCounts counts;
    std::vector<ImageLayout> images;  ///< in load order, the main program first

    /// The image that `address` lies in, null when none.
    [[nodiscard]] const ImageLayout* imageOf(std::uintptr_t address) const;
    /// How many images from the front were there when the program started. These are never
    /// unloaded and were relocated before any code of ours ran; later ones must be held before
    /// their memory is touched.
    [[nodiscard]] std::size_t startupCount() const;
};

/// [host thread] The images of this program's own namespace that have a dynamic table and a file.
/// Holds the loader's list lock only while copying, and allocates nothing meanwhile.
[[nodiscard]] LoadedImages loadedImages();

}  // namespace tqhook
