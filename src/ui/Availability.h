#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Enables a control, or disables and dims it. */
inline void setAvailable (juce::Component& control, bool available)
{
    control.setEnabled (available);
    control.setAlpha (available ? 1.0f : 0.4f);
}
