#include "hook/rebind/LoaderOrder.h"

#include <algorithm>

namespace tqhook {

const ImageLayout* LoaderOrder::find(std::string_view needed) const {
    const std::string ending = "/" + std::string(needed);
    const auto images = held_.images();
    const auto found = std::find_if(images.begin(), images.end(), [&](const ImageLayout* image) {
        return image->name == needed || image->name.ends_with(ending);
    });
    return found != images.end() ? *found : nullptr;
}

bool LoaderOrder::bindsElsewhere(const ElfImage& image, const SymbolEntry& entry) const {
    const ImageLayout* ours = held_.imageOf(entry.definition);
    const auto startup = held_.startupImages();
    if (std::find(startup.begin(), startup.end(), ours) != startup.end()) {
        return false;
    }
    std::vector<const ImageLayout*> road{&image.layout()};
    for (std::size_t i = 0; i < road.size(); ++i) {
        const ElfImage step(*road[i]);
        if (i > 0 && step.definition(entry.name.c_str())) {
            return road[i] != ours;
        }
        for (const std::string_view needed : step.neededLibraries()) {
            const ImageLayout* library = find(needed);
            if (library != nullptr && std::find(road.begin(), road.end(), library) == road.end()) {
                road.push_back(library);
            }
        }
    }
    return false;
}

}  // namespace tqhook
