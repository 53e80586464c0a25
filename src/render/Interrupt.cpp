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
    std::signal (SIGINT, handle);
}

bool hasCome()
{
    return interrupted != 0;
}

} // namespace interrupt
