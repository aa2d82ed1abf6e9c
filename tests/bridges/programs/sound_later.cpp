// Knows of no library for sound when it starts, and plays a file through a plug-in: sound_later
// KIND PLUGIN FILE
//
//   beside  the plug-in is loaded as usual
//   apart   with libraries of its own, in a namespace of its own; the program stays a while then

#include <dlfcn.h>

#include <array>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>

int main(int count, char** arguments) {
    if (count != 4) {
        return 2;
    }
    const bool isApart = std::string_view(arguments[1]) == "apart";
    void* const plugin =
        isApart ? dlmopen(LM_ID_NEWLM, arguments[2], RTLD_NOW) : dlopen(arguments[2], RTLD_NOW);
    void* const found = plugin == nullptr ? nullptr : dlsym(plugin, "playAlsa");
    if (found == nullptr) {
        return 3;
    }
    std::string road = "writei";
    std::array<char*, 3> call{road.data(), road.data(), arguments[3]};
    const int code = reinterpret_cast<int (*)(int, char**)>(found)(3, call.data());
    if (isApart) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return code;
}
