#pragma once

#include <sys/single_threaded.h>

#include <algorithm>
#include <span>
#include <vector>

#include "hook/elf/LoadedImages.h"
#include "hook/rebind/LoaderCalls.h"

namespace tqhook {

/// Keeps images loaded while their memory is looked at. Start-up images need no holding; the
/// others get a reference, which also waits until a load under way on another thread is over,
/// relocation and constructors included. While the process has one thread there is nobody to unload
/// them, and none is taken: the loader looks for each by comparing all names that it knows. Takes
/// the loader's lock: construct and destroy with no
/// lock of ours held, since a constructor that waits for us may hold the loader's.
class HeldImages {
  public:
    /// Holds those of `loaded` that `wanted(index)` names; start-up images are always included.
    /// Images that are gone by now are left out. `loaded` must outlive this.
    template <class Wanted>
    HeldImages(const LoaderCalls& calls, const LoadedImages& loaded, std::size_t startupCount,
               Wanted&& wanted)
        : calls_(calls), startupCount_(startupCount) {
        const bool isAlone = __libc_single_threaded != 0;
        for (std::size_t i = 0; i < loaded.images.size(); ++i) {
            if (i < startupCount || (wanted(i) && (isAlone || hold(loaded.images[i])))) {
                images_.push_back(&loaded.images[i]);
            }
        }
    }
    /// Lets go, and drops the message that any of our calls may have left for dlerror().
    ~HeldImages();
    HeldImages(const HeldImages&) = delete;
    HeldImages& operator=(const HeldImages&) = delete;

    /// In load order.
    [[nodiscard]] std::span<const ImageLayout* const> images() const { return images_; }
    [[nodiscard]] std::span<const ImageLayout* const> startupImages() const {
        return images().first(std::min(startupCount_, images_.size()));
    }
    /// The held image that `address` lies in, null when none.
    [[nodiscard]] const ImageLayout* imageOf(const void* address) const;

  private:
    bool hold(const ImageLayout& image);

    const LoaderCalls& calls_;
    const std::size_t startupCount_;
    std::vector<const ImageLayout*> images_;
    std::vector<void*> handles_;
};

/// Keeps the image for the life of the process. Takes the loader's lock.
void keepForever(const LoaderCalls& calls, const ImageLayout& image);

}  // namespace tqhook
