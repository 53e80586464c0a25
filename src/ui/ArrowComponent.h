#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** An arrow that points right, drawn as whole square cells of one size. */
class ArrowComponent : public juce::Component
{
public:
    ArrowComponent() = default;
    ~ArrowComponent() override = default;

    void paint (juce::Graphics& g) override;

private:
    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ArrowComponent)
};
