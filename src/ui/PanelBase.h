#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** A card: a rounded frame, a title in capitals and a rule below it. Derived panels place their controls in
    contentArea().
*/
class PanelBase : public juce::Component
{
public:
    /** @param title   in mixed case; it is drawn in capitals */
    explicit PanelBase (juce::String title);
    ~PanelBase() override;

    void paint (juce::Graphics& g) override;

protected:
    static constexpr int margin = 16;

    /** The indentation of the controls that belong to a toggle above them. */
    static constexpr int indent = 24;

    /** The strip at the top for the title and a control to its right. */
    juce::Rectangle<int> titleStrip() const;

    /** The area for controls, which starts 8 pixels below the rule. */
    juce::Rectangle<int> contentArea() const;

private:
    juce::String title;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (PanelBase)
};
