// `dovrel dap`: a debugger that an editor starts for each run.
#include "dovrel/commands.h"
#include "dovrel/dap/debug_channel.h"
#include "dovrel/dap/debugger.h"

int runDapCommand() {
    DebugChannel channel;
    Debugger(channel).run();
    return kSuccess;
}
