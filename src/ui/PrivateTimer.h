#pragma once

#include <juce_events/juce_events.h>

#include <type_traits>

/** @returns the timer of a JUCE component that derives from juce::Timer privately, so that it can be stopped while the
    component has nothing to do
*/
template <typename Component>
juce::Timer& timerOf (Component& component)
{
    static_assert (std::is_base_of_v<juce::Timer, Component>);

    // Only a C-style cast may convert to a private base.
    return (juce::Timer&) component;
}
