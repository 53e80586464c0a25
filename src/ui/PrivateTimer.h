#pragma once

#include <juce_events/juce_events.h>

#include <type_traits>

/** The timer of a JUCE component that derives from juce::Timer privately, and so keeps it running for as long as it
    likes.
*/
template <typename Component>
juce::Timer& timerOf (Component& component)
{
    static_assert (std::is_base_of_v<juce::Timer, Component>);

    // The one cast that may pass to a base that is private.
    return (juce::Timer&) component;
}
