#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Brown, amber and one pixel typeface.

    Colours and a typeface are all there is to it: every control is drawn by juce::LookAndFeel_V4. The
    typeface reaches a text only while this is the default look and feel, through which a font without a
    name is resolved: no control names a typeface.
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
