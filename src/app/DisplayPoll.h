#pragma once

#include <juce_events/juce_events.h>

#if JUCE_LINUX

#include <juce_events/native/juce_EventLoopInternal_linux.h>

/** Looks again for what the display has sent.

    JUCE looks when there is something to be read from the display's connection. What has been read by then,
    together with the answer to a question that a timer asked, it sees with the next event alone: a dialog's
    picture stays where the dialog was, and a key waits for the mouse to be moved.
*/
class DisplayPoll : private juce::Timer
{
public:
    DisplayPoll() { startTimerHz (20); }

private:
    void timerCallback() override
    {
        for (const auto descriptor : juce::LinuxEventLoopInternal::getRegisteredFds())
            juce::LinuxEventLoopInternal::invokeEventLoopCallbackForFd (descriptor);
    }
};

#endif
