#include "ui/StemPanel.h"

#include "pipeline/SeparationDevice.h"
#include "ui/Caption.h"
#include "ui/Theme.h"

#include <algorithm>

namespace
{

void setUpCpuNotice (juce::Label& notice)
{
    notice.setText ("Heads-up: separation runs on the CPU and can take several minutes per song on this machine.",
                    juce::dontSendNotification);
    notice.setTooltip (notice.getText()); // the text does not fit if the window is small
    notice.setColour (juce::Label::textColourId, theme::textDim);
    notice.setFont (juce::Font (juce::FontOptions (11.0f)));
    notice.setJustificationType (juce::Justification::topLeft);
}

} // namespace

StemPanel::StemPanel() : PanelBase (juce::CharPointer_UTF8 ("2 · Stems"))
{
    for (auto* const stem : stemToggles)
    {
        stem->setToggleState (true, juce::dontSendNotification);
        addAndMakeVisible (stem);
    }

    addAndMakeVisible (fullSongToggle);

    styleAsCaption (modelLabel);
    addAndMakeVisible (modelLabel);

    modelBox.addItem (getModelName() + " (Demucs v4)", 1);
    modelBox.setSelectedId (1, juce::dontSendNotification);
    modelBox.setTitle (modelLabel.getText());
    addAndMakeVisible (modelBox);

    if (! separationHasFastDevice())
    {
        setUpCpuNotice (cpuNotice);
        addAndMakeVisible (cpuNotice);
    }
}

void StemPanel::resized()
{
    auto area = contentArea();

    for (auto* const stem : stemToggles)
        stem->setBounds (area.removeFromTop (26));

    area.removeFromTop (8);
    fullSongToggle.setBounds (area.removeFromTop (26));
    area.removeFromTop (18);
    modelLabel.setBounds (area.removeFromTop (18));
    area.removeFromTop (4);
    modelBox.setBounds (area.removeFromTop (28));

    if (cpuNotice.isVisible())
    {
        area.removeFromTop (8);
        cpuNotice.setBounds (area);
    }
}

void StemPanel::getStems (bool (&out)[PipelineConfig::numStems]) const
{
    std::transform (stemToggles.begin(), stemToggles.end(), out,
                    [] (const juce::ToggleButton* toggle) { return toggle->getToggleState(); });
}

juce::String StemPanel::getModelName() const
{
    return PipelineConfig::defaultModel;
}
