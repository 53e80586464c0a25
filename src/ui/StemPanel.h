#pragma once

#include "ui/PanelBase.h"

/** Which stems are wanted, and the full song besides: any of them, together or alone. */
class StemPanel : public PanelBase
{
public:
    StemPanel();

    void resized() override;

    /** Whether each stem is wanted, in the order of PipelineConfig::stemNames. */
    void getStems (bool (&out)[4]) const;

    /** The model's name as the workers know it, which is not what the box shows. */
    juce::String getModelName() const;

private:
    juce::ToggleButton drumsToggle { "Drums" };
    juce::ToggleButton bassToggle { "Bass" };
    juce::ToggleButton vocalsToggle { "Vocals" };
    juce::ToggleButton otherToggle { "Other" };

public:
    juce::ToggleButton fullSongToggle { "Full song (unsplit)" };

private:
    juce::Label modelLabel { {}, "Separation model" };
    juce::ComboBox modelBox;
    juce::Label cpuNotice; /**< not a child where separation has more than the CPU */

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (StemPanel)
};
