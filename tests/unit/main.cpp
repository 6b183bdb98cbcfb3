// The unit tests run where the interpreter runs: on the large stack.
#include <gtest/gtest.h>

#include "host/large_stack.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    int status = 1;
    runOnLargeStack([&] { status = RUN_ALL_TESTS(); });
    return status;
}
