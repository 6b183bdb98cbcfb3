#include "dovrel/interrupt.h"

#include "value/run_context.h"

namespace {

volatile std::sig_atomic_t timesPressed = 0;

void interrupt(int) {
    timesPressed = timesPressed + 1;
    RunContext::current().watch.interrupt();
    if (timesPressed < 3) return;
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
}

}  // namespace

InterruptGuard::InterruptGuard() {
    timesPressed = 0;
    RunContext::current().watch.forgetInterruption();
    struct sigaction action {};
    // Without a restart, so that waiting for input ends as well.
    action.sa_handler = interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &before_);
}

InterruptGuard::~InterruptGuard() {
    sigaction(SIGINT, &before_, nullptr);
    RunContext::current().watch.forgetInterruption();
}
