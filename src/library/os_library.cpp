// The clocks.
#include <chrono>
#include <cstdint>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"

Variable osClockFunction(DovrelScript& interpreter, Arguments args) {
    if (!args.empty()) throwPlainError("os['clock']() takes no arguments");
    // Elapsed time, not processor time: kept.
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - interpreter.startTime);
    return Variable::makeFloat(static_cast<float>(static_cast<double>(elapsed.count()) * 0.000001));
}

Variable osTimeFunction(DovrelScript&, Arguments args) {
    if (!args.empty()) throwPlainError("os['time']() takes no arguments");
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return Variable::makeInt(static_cast<int>(seconds));
}
