#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** An arrow that points right, from one card to the next, out of whole square cells. */
class ArrowComponent : public juce::Component
{
public:
    ArrowComponent() = default;
    ~ArrowComponent() override = default;

    void paint (juce::Graphics& g) override;

private:
    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ArrowComponent)
};
