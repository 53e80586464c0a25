#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Sets the palette and the pixel typeface; juce::LookAndFeel_V4 draws every control.

    No control names a typeface: JUCE resolves a font without a name through the default look and feel, so this must be
    the default for the typeface to apply.
*/
class PipelineLookAndFeel : public juce::LookAndFeel_V4
{
public:
    PipelineLookAndFeel();
    ~PipelineLookAndFeel() override;

private:
    juce::Typeface::Ptr pixelTypeface;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (PipelineLookAndFeel)
};
