#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** A control that does not apply stays where it is, disabled and dimmed. */
inline void setAvailable (juce::Component& control, bool available)
{
    control.setEnabled (available);
    control.setAlpha (available ? 1.0f : 0.4f);
}
