#pragma once

#include "ui/Theme.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** The small, dim text that stands by a field, or the path of a folder. */
inline void makeCaption (juce::Label& label)
{
    label.setColour (juce::Label::textColourId, theme::textDim);
    label.setFont (juce::Font (juce::FontOptions (12.0f)));
}
