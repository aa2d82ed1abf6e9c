#include "hook/elf/LoadedImages.h"

#include <sys/auxv.h>

#include <algorithm>
#include <span>

#include "hook/elf/LoaderMemory.h"

namespace tqhook {

namespace {

struct RawImage {
    std::uintptr_t base;
    std::size_t firstHeader;
    std::size_t headerCount;
    std::size_t nameOffset;
};

// Flat copies with room reserved beforehand: allocating under the loader's lock could wait for a
// thread that holds the allocator's lock and walks the images for a stack trace.
struct Copy {
    std::vector<RawImage> images;
    std::vector<ElfW(Phdr)> headers;
    std::vector<char> names;
    std::size_t imagesWanted = 0;
    std::size_t headersWanted = 0;
    std::size_t namesWanted = 0;
    LoaderCounts counts;

    [[nodiscard]] bool fits() const {
        return imagesWanted <= images.capacity() && headersWanted <= headers.capacity() &&
               namesWanted <= names.capacity();
    }
};

int copyImage(dl_phdr_info* info, std::size_t /*size*/, void* context) {
    Copy& copy = *static_cast<Copy*>(context);
    const std::size_t headerCount = info->dlpi_phnum;
    const std::size_t nameLength = loaderTextLength(info->dlpi_name);
    copy.counts = {info->dlpi_adds, info->dlpi_subs};
    ++copy.imagesWanted;
    copy.headersWanted += headerCount;
    copy.namesWanted += nameLength + 1;
    if (copy.fits()) {
        copy.images.push_back(
            {info->dlpi_addr, copy.headers.size(), headerCount, copy.names.size()});
        const std::size_t firstHeader = copy.headers.size();
        copy.headers.resize(firstHeader + headerCount);
        copyFromLoader(copy.headers.data() + firstHeader, info->dlpi_phdr, headerCount);
        // The byte behind the name stays 0.
        const std::size_t nameOffset = copy.names.size();
        copy.names.resize(nameOffset + nameLength + 1);
        copyFromLoader(copy.names.data() + nameOffset, info->dlpi_name, nameLength);
    }
    return 0;
}

ImageLayout layoutOf(const Copy& copy, const RawImage& image) {
    ImageLayout layout;
    layout.base = image.base;
    layout.name = copy.names.data() + image.nameOffset;
    const std::span<const ElfW(Phdr)> headers(copy.headers.data() + image.firstHeader,
                                              image.headerCount);
    for (const ElfW(Phdr) & header : headers) {
        const AddressRange range{image.base + header.p_vaddr,
                                 image.base + header.p_vaddr + header.p_memsz};
        if (header.p_type == PT_LOAD) {
            layout.segments.push_back({range, header.p_flags});
        } else if (header.p_type == PT_DYNAMIC) {
            layout.dynamic = range;
        } else if (header.p_type == PT_GNU_RELRO) {
            layout.relro = range;
        }
    }
    return layout;
}

std::string_view fileNameOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool isFile(std::string_view path, std::string_view fileName) {
    return path.ends_with(fileName) &&
           (path.size() == fileName.size() || path[path.size() - fileName.size() - 1] == '/');
}

}  // namespace

LoaderCounts loaderCounts() {
    LoaderCounts counts;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* context) {
            *static_cast<LoaderCounts*>(context) = {info->dlpi_adds, info->dlpi_subs};
            return 1;
        },
        &counts);
    return counts;
}

LoadedImages loadedImages() {
    Copy copy;
    std::size_t images = 64;
    std::size_t headers = images * 12;
    std::size_t names = images * 80;
    do {
        copy = Copy{};
        copy.images.reserve(images);
        copy.headers.reserve(headers);
        copy.names.reserve(names);
        dl_iterate_phdr(copyImage, &copy);
        images = copy.imagesWanted + 16;
        headers = copy.headersWanted + std::size_t{16} * 12;
        names = copy.namesWanted + std::size_t{16} * 80;
    } while (!copy.fits());

    LoadedImages loaded;
    loaded.counts = copy.counts;
    loaded.images.reserve(copy.images.size());
    const std::uintptr_t kernelImage = getauxval(AT_SYSINFO_EHDR);
    for (std::size_t i = 0; i < copy.images.size(); ++i) {
        ImageLayout layout = layoutOf(copy, copy.images[i]);
        layout.isMainProgram = i == 0;
        const bool isKernelImage =
            kernelImage != 0 && layout.contains(kernelImage) && !layout.isMainProgram;
        if (layout.dynamic.begin != 0 && !isKernelImage) {
            loaded.images.push_back(std::move(layout));
        }
    }
    return loaded;
}

const ImageLayout* LoadedImages::imageOf(std::uintptr_t address) const {
    const auto found =
        std::find_if(images.begin(), images.end(),
                     [address](const ImageLayout& image) { return image.contains(address); });
    return found != images.end() ? &*found : nullptr;
}

std::size_t LoadedImages::startupCount() const {
    // Later images are appended, so whatever stands before a library that the start needed was
    // there at the start too, and its own needs are start-up images in turn.
    std::size_t count = images.empty() ? 0 : 1;
    for (std::size_t i = 0; i < count; ++i) {
        for (const std::string_view needed : ElfImage(images[i]).neededLibraries()) {
            const auto found = std::find_if(images.begin(), images.end(),
                                            [file = fileNameOf(needed)](const ImageLayout& image) {
                                                return isFile(image.name, file);
                                            });
            if (found != images.end()) {
                count = std::max(count, static_cast<std::size_t>(found - images.begin()) + 1);
            }
        }
    }
    return count;
}

}  // namespace tqhook
