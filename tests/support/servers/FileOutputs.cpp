#include "FileOutputs.h"

#include <filesystem>
#include <fstream>

namespace tqtest {

AlsaFilePcm::AlsaFilePcm() {
    configure("type null");
}

AlsaFilePcm::AlsaFilePcm(const PulseServer& pacing) {
    environment_ = pacing.environment();
    configure("type pulse server \"unix:" + pacing.socket() + "\" device \"cap\"");
}

void AlsaFilePcm::configure(const std::string& below) {
    const std::string file = folder_.file("asound.conf");
    std::ofstream(file) << "pcm.below { " << below << " }\n"
                        << "pcm.null { type null }\n"
                        << "pcm.cap { type file slave.pcm \"below\" format \"raw\" truncate false"
                        << " file \"" << folder_.file("written") << "\" }\n"
                        << "pcm.!default { type plug slave.pcm \"cap\" }\n";
    environment_["ALSA_CONFIG_PATH"] = file;
}

std::string AlsaFilePcm::takeWritten() {
    std::string all;
    // A second opening goes to "written.0001", and so on.
    for (const std::string& name : folder_.names()) {
        if (name.starts_with("written")) {
            all += contentOf(folder_.file(name));
            std::filesystem::remove(folder_.file(name));
        }
    }
    return all;
}

SdlDisk::SdlDisk() {
    environment_ = privateFolders(folder_);
    environment_["SDL_AUDIODRIVER"] = "disk";
    environment_["SDL_VIDEODRIVER"] = "dummy";
    environment_["SDL_DISKAUDIOFILE"] = folder_.file("written");
}

std::string SdlDisk::takeWritten() {
    std::string all = contentOf(folder_.file("written"));
    std::filesystem::remove(folder_.file("written"));
    return all;
}

}  // namespace tqtest
