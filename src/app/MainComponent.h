#pragma once

#include "ui/ArrowComponent.h"
#include "ui/InputPanel.h"
#include "ui/KeyboardNavigation.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "ui/StemPanel.h"
#include "ui/TempoPanel.h"

#include <juce_gui_basics/juce_gui_basics.h>

#include <memory>

/** The single content component of the main window: a header, the four panels with arrows between them,
    and at the bottom the status, the progress and the one button that starts a run.

    The layout is fixed arithmetic. Of the height, all that a larger window gives goes to the panels.
*/
class MainComponent : public juce::Component
{
public:
    MainComponent();
    ~MainComponent() override;

    void paint (juce::Graphics& g) override;
    void resized() override;

private:
    void loadPictures();
    void setUpLabels();
    void setUpExecution();
    void addChildren();
    void layOutHeader (juce::Rectangle<int> header);
    void layOutBottomBar (juce::Rectangle<int> bar);
    void layOutPanels (juce::Rectangle<int> row);

    // Members go in reverse order: the look and feel has to outlive whatever is drawn with it.
    PipelineLookAndFeel lookAndFeel;
    std::unique_ptr<juce::Drawable> background;
    std::unique_ptr<juce::Drawable> logo;
    juce::Label titleLabel;
    juce::Rectangle<int> logoBounds;
    int headerRuleY = 0;

    InputPanel inputPanel;
    StemPanel stemPanel;
    TempoPanel tempoPanel;
    OutputPanel outputPanel;
    ArrowComponent arrow1, arrow2, arrow3;

    juce::TextButton executeButton { "Execute" };
    double progress = 0.0;
    juce::ProgressBar progressBar { progress };
    juce::Label statusLabel;
    juce::Label footerLabel;
    juce::TooltipWindow tooltipWindow { this, 700 };
    KeyboardNavigation keyboardNavigation { *this };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MainComponent)
};
