// Plays files of 16-bit stereo frames on the ALSA device "cap" through plug-ins, as programs load
// them: alsa_loader KIND PLUGIN FILE [FILE LIBASOUND]
//
//   deepbind   the plug-in is opened with RTLD_DEEPBIND
//   reopen     opened, closed when the first file is played, and opened again for the second
//   copies     the second file is played through another copy of the library, LIBASOUND
//   exec       in the middle of the first file the program becomes another, which plays the second

#include <alsa/asoundlib.h>
#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

namespace {

[[noreturn]] void fail() {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(2);
}

void* load(const char* file, int flags) {
    void* const handle = dlopen(file, RTLD_NOW | RTLD_LOCAL | flags);
    if (handle == nullptr) {
        fail();
    }
    return handle;
}

template <class Function>
Function* find(void* handle, const char* name) {
    void* const found = dlsym(handle, name);
    if (found == nullptr) {
        fail();
    }
    return reinterpret_cast<Function*>(found);
}

void play(void* plugin, std::string file) {
    std::string road = "writei";
    std::array<char*, 3> arguments{road.data(), road.data(), file.data()};
    const int code = find<int(int, char**)>(plugin, "playAlsa")(3, arguments.data());
    if (code != 0) {
        std::exit(code);
    }
}

/// Through functions that were asked for by name.
void playThrough(void* alsa, const char* file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string sound{std::istreambuf_iterator<char>(stream), {}};
    snd_pcm_t* pcm = nullptr;
    if (find<decltype(snd_pcm_open)>(alsa, "snd_pcm_open")(&pcm, "cap", SND_PCM_STREAM_PLAYBACK,
                                                           0) < 0 ||
        find<decltype(snd_pcm_set_params)>(alsa, "snd_pcm_set_params")(
            pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2, 48000, 0, 200000) < 0) {
        std::exit(3);
    }
    const auto taken =
        find<decltype(snd_pcm_writei)>(alsa, "snd_pcm_writei")(pcm, sound.data(), sound.size() / 4);
    std::printf("%ld\n", taken);
    std::printf("%d\n", find<decltype(snd_pcm_drain)>(alsa, "snd_pcm_drain")(pcm));
    find<decltype(snd_pcm_close)>(alsa, "snd_pcm_close")(pcm);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) {
        return 2;
    }
    if (dlopen("libasound.so.2", RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        std::fprintf(stderr, "the library does not come with the plug-in\n");
        return 2;
    }
    const std::string_view kind = arguments[1];
    void* const plugin = load(arguments[2], kind == "deepbind" ? RTLD_DEEPBIND : 0);
    if (kind == "exec") {
        std::thread([&] { play(plugin, arguments[3]); }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        execl(arguments[0], arguments[0], "deepbind", arguments[2], arguments[4], nullptr);
        return 4;
    }
    play(plugin, arguments[3]);
    if (kind == "reopen") {
        dlclose(plugin);
        play(load(arguments[2], 0), arguments[4]);
    } else if (kind == "copies") {
        playThrough(load(arguments[5], 0), arguments[4]);
    }
    return 0;
}
