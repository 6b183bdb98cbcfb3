// `dovrel`: the tools around the interpreter, as one program with commands.
#include "dovrel/command_line.h"
#include "host/large_stack.h"

int main(int argc, char** argv) {
    int status = 0;
    // Scripts recurse on the host's stack, and so do the texts of deep values.
    runOnLargeStack([&] { status = runCommandLine(argc, argv); });
    return status;
}
