// Compares the three runs of a back end: compare FOLDER. Says on one line what was found; fails
// unless the device played the same in all three and the track holds what the program handed out,
// sample for sample.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Player.h"

namespace {

template <class Sample>
std::vector<Sample> read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    std::vector<Sample> samples(bytes.size() / sizeof(Sample));
    std::copy_n(bytes.data(), samples.size() * sizeof(Sample),
                reinterpret_cast<char*>(samples.data()));
    return samples;
}

/// What a track of floats keeps of a sample.
std::int16_t keptOfFloat(std::int16_t sample) {
    return static_cast<std::int16_t>(static_cast<float>(sample) / 32768.0F * 32767.0F);
}

/// How many samples of `given` come first in `recorded`, behind silence that the back end put in
/// front of them.
std::size_t agreement(const std::vector<std::int16_t>& given,
                      const std::vector<std::int16_t>& recorded) {
    const auto first =
        std::find_if(recorded.begin(), recorded.end(), [](std::int16_t s) { return s != 0; });
    const auto count = std::min<std::ptrdiff_t>(recorded.end() - first, std::ssize(given));
    return static_cast<std::size_t>(std::mismatch(first, first + count, given.begin()).first -
                                    first);
}

int fail(const char* what, std::size_t at) {
    std::printf("%s %zu\n", what, at);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : ".";
    const auto bare = read<float>(folder + "/bare/played");
    if (std::all_of(bare.begin(), bare.end(), [](float sample) { return sample == 0; })) {
        return fail("plays nothing by itself, samples:", bare.size());
    }
    for (const char* how : {"hooked", "recorded"}) {
        const auto played = read<float>(folder + "/" + how + "/played");
        if (played != bare) {
            const auto common = std::min(played.size(), bare.size());
            const auto at = std::mismatch(bare.begin(), bare.begin() + static_cast<long>(common),
                                          played.begin())
                                .first -
                            bare.begin();
            std::printf("%s, ", how);
            return fail("the device plays otherwise from sample", static_cast<std::size_t>(at));
        }
    }
    auto given = read<std::int16_t>(folder + "/recorded/given");
    const auto recorded = read<std::int16_t>(folder + "/recorded/recorded");
    std::size_t same = agreement(given, recorded);
    std::vector<std::int16_t> kept(given.size());
    std::transform(given.begin(), given.end(), kept.begin(), keptOfFloat);
    same = std::max(same, agreement(kept, recorded));
    // What the back end still held when it closed was never played; nor is it recorded.
    const auto heard = std::find_if(bare.rbegin(), bare.rend(), [](float s) { return s != 0; });
    const auto first = std::find_if(bare.begin(), bare.end(), [](float s) { return s != 0; });
    const auto sounded = static_cast<std::size_t>(heard.base() - first);
    if (same != sounded) {
        std::printf("of %zu samples played ", sounded);
        return fail("the recording holds", same);
    }
    std::printf("identical, %zu frames recorded exactly\n", same / kPlayerChannels);
    return 0;
}
