#pragma once

#include "pipeline/PipelineConfig.h"
#include "ui/PanelBase.h"

#include <functional>

/** Selects the change of tempo or pitch: a percentage, a source and target BPM, or a source and target key.

    The panel validates nothing. Its members are public for the owner to read and connect.
*/
class TempoPanel : public PanelBase
{
public:
    TempoPanel();

    void resized() override;

    StretchMode getStretchMode() const;
    AdjustMode getAdjustMode() const;

    /** Dims the controls that do not apply. Call this after setting a toggle without notification. */
    void updateEnablement();

    /** Disables the button during an analysis. */
    void setAnalyzeBusy (bool busy);

    /** Shows a detected tempo and key, uses them as the source values and turns both Auto toggles off.

        @param bpm   shown with one decimal place
        @param key   an index into PipelineConfig::keyNames; clamped to its range
    */
    void setAnalysisResult (double bpm, int key);

    /** Clears the detected values, but not the source values that were set from them. */
    void clearAnalysisResult();

    std::function<void()> onAnalyze;

    juce::ToggleButton tempoOnlyToggle { "Tempo only (keep pitch)" };
    juce::ToggleButton tempoPitchToggle { "Tempo + pitch (resample)" };
    juce::ToggleButton percentToggle { "Percentage" };
    juce::ToggleButton bpmToggle { "BPM" };
    juce::ToggleButton keyToggle { "Key" };
    juce::Slider percentSlider; /**< -50 to 100 percent */
    juce::Label bpmFromLabel { {}, "from" };
    juce::Label bpmToLabel { {}, "to" };
    juce::TextEditor bpmFromBox;
    juce::TextEditor bpmToBox;
    juce::ToggleButton bpmAutoToggle { "Auto" };
    juce::Label keyFromLabel { {}, "from" };
    juce::Label keyToLabel { {}, "to" };
    juce::ComboBox keyFromBox; /**< an item's id is the key index plus one */
    juce::ComboBox keyToBox;
    juce::ToggleButton keyAutoToggle { "Auto" };
    juce::TextButton analyzeButton { "Analyze" };
    juce::Label detectedLabel { {}, "Detected:" };
    juce::Label detectedBpmLabel { {}, "--" };
    juce::Label detectedKeyLabel { {}, "--" };

private:
    void setUpModes();
    void setUpPercentage();
    void setUpBpm();
    void setUpKey();
    void setUpAnalysis();
    void setReadingOrder();

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (TempoPanel)
};
