// document_options TEMPLATE OUTPUT: fills a template of the manual page or of a completion with the
// options of the recorder. Run by the build.

#include <cstdio>
#include <fstream>
#include <sstream>

#include "cli/Documentation.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: document_options TEMPLATE OUTPUT\n", stderr);
        return 1;
    }
    std::ifstream in(argv[1]);
    std::stringstream text;
    text << in.rdbuf();
    std::ofstream out(argv[2]);
    out << tqrecorder::filledTemplate(text.str());
    if (!in || !out.flush()) {
        std::fprintf(stderr, "document_options: %s cannot be made from %s\n", argv[2], argv[1]);
        return 1;
    }
    return 0;
}
