// The unit tests analyse files through the same checker registry as the
// programs.
#include <gtest/gtest.h>

#include "formats/Checkers.h"

int main(int argc, char** argv) {
    sondrel::installCheckers();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
