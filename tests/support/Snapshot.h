#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** @returns a picture of a component and its children, without anything behind them */
inline juce::Image snapshot (juce::Component& component)
{
    return component.createComponentSnapshot (component.getLocalBounds());
}
