#include "pipeline/ChildSlot.h"

#if JUCE_LINUX
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

static const auto programId = getpid();
static thread_local bool isStarting = false;

/** Runs in every child of this program, between fork and exec.

    Keeps the child from inheriting the program's open files. While a run and an analysis overlap, one worker would
    otherwise hold the other's output pipe open, and the reader of that pipe would wait for both.

    Makes the system kill a worker when the program ends, even if the program is killed. Otherwise uv would go on, and
    might download gigabytes.
*/
static void prepareChild()
{
#ifdef CLOSE_RANGE_CLOEXEC
    close_range (STDERR_FILENO + 1, ~0u, CLOSE_RANGE_CLOEXEC);
#endif

    if (! isStarting)
        return;

    prctl (PR_SET_PDEATHSIG, SIGKILL);

    // If the program has ended already, the signal will not come.
    if (getppid() != programId)
        _exit (EXIT_FAILURE);
}

static void installForkHandler()
{
    [[maybe_unused]] static const auto installed = pthread_atfork (nullptr, nullptr, prepareChild);
}
#endif

juce::ChildProcess* ChildSlot::start (const juce::StringArray& args)
{
#if JUCE_LINUX
    installForkHandler();
    const juce::ScopedValueSetter<bool> starting (isStarting, true);
#endif

    // Another thread may be reading the pointer in kill().
    const juce::ScopedLock scopedLock (lock);
    child = std::make_unique<juce::ChildProcess>();

    if (! child->start (args, juce::ChildProcess::wantStdOut | juce::ChildProcess::wantStdErr))
        child.reset();

    return child.get();
}

void ChildSlot::empty()
{
    std::unique_ptr<juce::ChildProcess> ended;

    {
        const juce::ScopedLock scopedLock (lock);
        ended = std::move (child);
    }

    // A process that has ended remains a zombie until it has been waited for.
    constexpr auto timeoutMilliseconds = 500;

    if (ended != nullptr)
        ended->waitForProcessToFinish (timeoutMilliseconds);
}

void ChildSlot::kill()
{
    const juce::ScopedLock scopedLock (lock);

    if (child != nullptr)
        child->kill();
}
