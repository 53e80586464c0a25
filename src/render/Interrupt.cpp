#include "render/Interrupt.h"

#include <csignal>

namespace interrupt
{

// A signal handler may safely change a flag of this type.
static volatile std::sig_atomic_t interrupted = 0;

static void handle (int)
{
    interrupted = 1;
    std::signal (SIGINT, SIG_DFL);
}

void listen()
{
    // Shells start background jobs with Ctrl-C ignored. Keep ignoring it there.
    if (std::signal (SIGINT, handle) == SIG_IGN)
        std::signal (SIGINT, SIG_IGN);
}

bool hasCome()
{
    return interrupted != 0;
}

} // namespace interrupt
