// Forks, and the child plays a file of 16-bit stereo frames on the ALSA device "cap": alsa_forks
// KIND FILE
//
//   own        the child opens the device
//   inherited  it was open before the fork

#include <alsa/asoundlib.h>
#include <unistd.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

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

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        return 2;
    }
    std::ifstream file(arguments[2], std::ios::binary);
    const std::string sound{std::istreambuf_iterator<char>(file), {}};
    const bool isInherited = std::string_view(arguments[1]) == "inherited";
    snd_pcm_t* pcm = isInherited ? openDevice() : nullptr;
    const pid_t child = fork();
    if (child != 0) {
        int status = 1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 4;
    }
    pcm = isInherited ? pcm : openDevice();
    const snd_pcm_sframes_t taken = snd_pcm_writei(pcm, sound.data(), sound.size() / 4);
    (void)snd_pcm_drain(pcm);
    (void)snd_pcm_close(pcm);
    return taken == static_cast<snd_pcm_sframes_t>(sound.size() / 4) ? 0 : 5;
}
