#pragma once

#include "ui/Theme.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** Makes a label's text small and dim, as a caption beside a field. */
inline void styleAsCaption (juce::Label& label)
{
    label.setColour (juce::Label::textColourId, theme::textDim);
    label.setFont (juce::Font (juce::FontOptions (12.0f)));
}
