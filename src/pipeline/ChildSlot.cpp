#include "pipeline/ChildSlot.h"

juce::ChildProcess* ChildSlot::start (const juce::StringArray& args)
{
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
