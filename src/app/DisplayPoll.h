#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#if JUCE_LINUX

#include <juce_events/native/juce_EventLoopInternal_linux.h>

/** Looks 20 times a second for what the display has sent.

    JUCE looks when there is something to be read from the display's connection. What has been read by then, together
    with the answer to a question that a timer asked, it sees only with the next event: a dialog's picture stays where
    the dialog was, and a key waits until the mouse moves.

    The window's repaint timer, which JUCE runs at 60 Hz or more even if nothing changes, drives this: a timer of its
    own would wake an idle program more often.
*/
class DisplayPoll
{
public:
    /** @param window   has to be on the desktop whenever something is to be seen */
    explicit DisplayPoll (juce::Component& window) : repaints (&window, [this] (double seconds) { poll (seconds); }) {}

private:
    void poll (double seconds)
    {
        constexpr auto interval = 0.05;

        if (seconds - lastPoll < interval)
            return;

        lastPoll = seconds;

        for (const auto descriptor : juce::LinuxEventLoopInternal::getRegisteredFds())
            juce::LinuxEventLoopInternal::invokeEventLoopCallbackForFd (descriptor);
    }

    double lastPoll = 0.0;
    juce::VBlankAttachment repaints;

    JUCE_DECLARE_NON_COPYABLE (DisplayPoll)
};

#endif
