#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** Holds the worker that a runner has running, so that another thread can kill it.

    One thread starts and empties, and reads from the process; the lock is never held while it reads.
*/
class ChildSlot
{
public:
    /** Starts a process with both its output streams merged, and deletes what the slot held.
        @returns the process, which stays valid until the slot is emptied, or nullptr if it could not be started
    */
    juce::ChildProcess* start (const juce::StringArray& args);

    /** Deletes the process, which has ended or been killed before. */
    void empty();

    /** Ends the process at once, if there is one. May be called on any thread. */
    void kill();

private:
    juce::CriticalSection lock;
    std::unique_ptr<juce::ChildProcess> child;
};
