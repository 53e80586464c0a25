#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** A card of the workflow: a rounded frame, a title in capitals and a rule beneath it.

    A panel that derives from this lays its controls out in contentArea().
*/
class PanelBase : public juce::Component
{
public:
    /** @param title   in mixed case: only what is drawn is in capitals */
    explicit PanelBase (juce::String title);
    ~PanelBase() override;

    void paint (juce::Graphics& g) override;

protected:
    static constexpr int margin = 16;

    /** How far an option's controls stand in from the option itself. */
    static constexpr int indent = 24;

    /** The strip that the title stands in, and a control that goes beside it. */
    juce::Rectangle<int> titleStrip() const;

    /** What the frame and the title leave for controls, which begins 8 below the rule. */
    juce::Rectangle<int> contentArea() const;

private:
    juce::String title;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (PanelBase)
};
