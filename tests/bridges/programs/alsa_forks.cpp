// Forks, and the child plays a file of 16-bit stereo frames on the ALSA device "cap": alsa_forks
// KIND FILE [GO]
//
//   own        the child opens the device
//   alone      so it does, and both have one thread until then
//   inherited  it was open before the fork
//   again      so it does, and once more when there is a file GO
//   awaited    the child opens the device as soon as there is a file GO
//   later      the fork is as late as that
//
// There is a file GO.awaited then. With GO how many milliseconds the child took from then on, and
// its exit code, are written to the file GO.took.

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

namespace {

snd_pcm_t* openDevice() {
    snd_pcm_t* pcm = nullptr;
    if (snd_pcm_open(&pcm, "cap", SND_PCM_STREAM_PLAYBACK, 0) < 0 ||
        snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2, 48000, 0,
                           200000) < 0) {
        std::exit(3);
    }
    return pcm;
}

void await(const std::string& file) {
    std::ofstream{file + ".awaited"};
    while (!std::filesystem::exists(file)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

bool play(snd_pcm_t* pcm, const std::string& sound) {
    const auto frames = static_cast<snd_pcm_sframes_t>(sound.size() / 4);
    const snd_pcm_sframes_t taken =
        snd_pcm_writei(pcm, sound.data(), static_cast<snd_pcm_uframes_t>(frames));
    (void)snd_pcm_drain(pcm);
    (void)snd_pcm_close(pcm);
    return taken == frames;
}

bool isAlone() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks)) == 1;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        return 2;
    }
    const std::string go = count > 3 ? arguments[3] : "";
    std::ifstream file(arguments[2], std::ios::binary);
    const std::string sound{std::istreambuf_iterator<char>(file), {}};
    const std::string_view kind = arguments[1];
    const bool isInherited = kind == "inherited";
    snd_pcm_t* const pcm = isInherited ? openDevice() : nullptr;
    if (kind == "later") {
        await(go);
    }
    const bool mustBeAlone = kind == "alone";
    if (mustBeAlone && !isAlone()) {
        return 6;
    }
    const pid_t child = fork();
    if (child == 0 && mustBeAlone && !isAlone()) {
        return 7;
    }
    if (kind == "awaited") {
        await(go);
    }
    if (child != 0) {
        const auto began = std::chrono::steady_clock::now();
        int status = 1;
        waitpid(child, &status, 0);
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 4;
        if (!go.empty()) {
            const std::chrono::duration<double, std::milli> took =
                std::chrono::steady_clock::now() - began;
            std::ofstream(go + ".part") << took.count() << ' ' << code;
            std::filesystem::rename(go + ".part", go + ".took");
        }
        return code;
    }
    if (kind == "again") {
        if (!play(openDevice(), sound)) {
            return 5;
        }
        await(go);
    }
    return play(isInherited ? pcm : openDevice(), sound) ? 0 : 5;
}
