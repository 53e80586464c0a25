#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#if JUCE_LINUX

#include <juce_events/native/juce_EventLoopInternal_linux.h>

/** Handles pending display events 20 times a second.

    JUCE handles events when the connection to the display becomes readable. Events that JUCE has already read, along
    with the reply to a request, wait in a queue until another event arrives. Until then, a closed dialog can stay on
    the screen, or a key press have no effect.

    The window's repaint timer drives the polling. JUCE runs it at 60 Hz or more in any case, whereas another timer
    would wake an idle program more often.
*/
class DisplayPoll
{
public:
    /** @param window   the top-level window; nothing is polled while it is off the desktop */
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
