#include "render/Interrupt.h"

#include <csignal>

namespace interrupt
{

// What a signal handler may touch is little: a flag of this type, and signal() itself.
static volatile std::sig_atomic_t interrupted = 0;

static void handle (int)
{
    interrupted = 1;
    std::signal (SIGINT, SIG_DFL);
}

void listen()
{
    // What the shell has told to ignore Ctrl-C, a job in the background say, goes on doing so.
    if (std::signal (SIGINT, handle) == SIG_IGN)
        std::signal (SIGINT, SIG_IGN);
}

bool hasCome()
{
    return interrupted != 0;
}

} // namespace interrupt
