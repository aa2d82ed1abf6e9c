// render_path CASE BLOCKS: so many blocks of the host's render callback, intercepted.
#include <array>
#include <cstdlib>
#include <iostream>
#include <string>

#include "HookedHost.h"
#include "RZReplayVolumeController.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "render_path idle|capture|gain BLOCKS\n";
        return 2;
    }
    const std::string name = argv[1];
    const int blocks = std::atoi(argv[2]);
    HookedHost host(1);
    RZReplayVolumeController controller;
    if (name == "gain") {
        const RZReplayVolumeDuckingParam ducking(YES);
        const RZReplayVolumeCompressorParam compressor(YES);
        controller.enableDucking(&ducking);
        controller.enableCompressor(&compressor);
        controller.updateDuckingVolume(0.0F, YES);
    }
    if (name == "capture" && !host.startCapture()) {
        std::cerr << "capture did not start\n";
        return 1;
    }
    constexpr UInt32 kFrames = 512;
    alignas(64) std::array<float, kFrames * 2> samples{};
    AudioBufferList list{};
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {2, sizeof samples, samples.data()};
    for (int block = 0; block < blocks; ++block) {
        if (name == "gain") {
            // Another level each time keeps the compressor moving.
            samples.fill(block % 2 == 0 ? 0.4F : 0.9F);
        }
        host.callIntercepted(kFrames, &list);
        if (name == "capture") {
            host.emptyRings();
        }
    }
}
