#pragma once

#include "pipeline/PipelineConfig.h"
#include "ui/PanelBase.h"

#include <array>

/** Selects the stems and the full song, in any combination.

    Its members are public for the owner to read.
*/
class StemPanel : public PanelBase
{
public:
    StemPanel();

    void resized() override;

    /** Writes each stem's toggle state, in the order of PipelineConfig::stemNames. */
    void getStems (bool (&out)[PipelineConfig::numStems]) const;

    /** Returns the name that the worker expects. The text in the box is longer. */
    juce::String getModelName() const;

    juce::ToggleButton drumsToggle { "Drums" };
    juce::ToggleButton bassToggle { "Bass" };
    juce::ToggleButton vocalsToggle { "Vocals" };
    juce::ToggleButton otherToggle { "Other" };
    juce::ToggleButton fullSongToggle { "Full song (unsplit)" };
    juce::Label modelLabel { {}, "Separation model" };
    juce::ComboBox modelBox;
    juce::Label cpuNotice; /**< shown only if separation runs on the CPU */

private:
    /** In the order of PipelineConfig::stemNames. */
    const std::array<juce::ToggleButton*, PipelineConfig::numStems> stemToggles =
        std::to_array<juce::ToggleButton*> ({ &drumsToggle, &bassToggle, &vocalsToggle, &otherToggle });

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (StemPanel)
};
