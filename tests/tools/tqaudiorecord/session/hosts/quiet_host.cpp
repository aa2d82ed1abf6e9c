// A program that knows nothing of sound, except for a name that it may hold.

#include <sys/prctl.h>

#include <array>
#include <cerrno>
#include <fstream>

#ifdef TQ_NAMED_LIBRARY
// Not optimised away: what a program opens later stands among its constants.
extern const char* const kOpenedLater;
const char* const kOpenedLater = TQ_NAMED_LIBRARY;
#endif

/// Writes what this process is called to the file that is its argument.
int main(int argc, char** argv) {
    if (argc > 1) {
        std::array<char, 16> name{};
        prctl(PR_GET_NAME, name.data());
        std::ofstream(argv[1]) << argv[0] << " " << name.data() << " " << program_invocation_name;
    }
    return 0;
}
