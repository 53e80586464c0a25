#include "pipeline/ChildSlot.h"

#if JUCE_LINUX
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

static const auto program = getpid();
static thread_local bool isStarting = false;

/** Runs in every child of this program, between its fork and its exec.

    JUCE leaves all that the program has open to each child. One that inherits the other end of another worker's
    output, as when a run and an analysis go on at once, would keep that worker's reader waiting for its own end.

    And a program that is killed cannot kill its worker, and uv could go on to fetch gigabytes: the system has to.
*/
static void prepareChild()
{
#ifdef CLOSE_RANGE_CLOEXEC
    close_range (STDERR_FILENO + 1, ~0u, CLOSE_RANGE_CLOEXEC);
#endif

    if (! isStarting)
        return;

    prctl (PR_SET_PDEATHSIG, SIGKILL);

    // A program that is gone by now is past sending that signal.
    if (getppid() != program)
        _exit (EXIT_FAILURE);
}

static void arrangePreparation()
{
    [[maybe_unused]] static const auto installed = pthread_atfork (nullptr, nullptr, prepareChild);
}
#endif

juce::ChildProcess* ChildSlot::start (const juce::StringArray& args)
{
#if JUCE_LINUX
    arrangePreparation();
    const juce::ScopedValueSetter<bool> starting (isStarting, true);
#endif

    // Under the lock, since kill() reads what start() writes.
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

    // An ended process stays in the system's list until somebody has asked for its end.
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
