#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** What a component and its children draw, without what lies beneath them. */
inline juce::Image snapshot (juce::Component& component)
{
    return component.createComponentSnapshot (component.getLocalBounds());
}
