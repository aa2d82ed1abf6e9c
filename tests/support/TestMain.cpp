#include <gtest/gtest.h>

#include "support/EachCase.h"

int main(int argc, char** argv) {
    const std::optional<int> code = tqtest::runEachCase(argc, argv);
    return code ? *code : RUN_ALL_TESTS();
}
