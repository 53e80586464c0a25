#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** The single content component of the main window. */
class MainComponent : public juce::Component
{
public:
    MainComponent();

    void paint (juce::Graphics& g) override;

private:
    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MainComponent)
};
