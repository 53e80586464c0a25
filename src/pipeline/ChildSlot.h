#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** Holds a runner's current worker, so that another thread can kill it.

    A single thread starts the worker, reads its output and empties the slot. It does not hold the lock while it reads,
    so kill() never waits for output.
*/
class ChildSlot
{
public:
    /** Starts a process with standard output and standard error merged. The process replaces the one in the slot.
        @returns the process, which stays valid until the slot is emptied, or nullptr if it could not be started
    */
    juce::ChildProcess* start (const juce::StringArray& args);

    /** Releases the process, which must have ended or been killed. */
    void empty();

    /** Kills the process, if there is one. May be called on any thread. */
    void kill();

private:
    juce::CriticalSection lock;
    std::unique_ptr<juce::ChildProcess> child;
};
