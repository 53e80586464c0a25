#pragma once

#include "pipeline/PipelineConfig.h"
#include "ui/PanelBase.h"

#include <functional>

/** How tempo or pitch shall change: by a percentage, from one BPM to another or from one key to another.

    Nothing that is entered is judged here. The members are public for the owner to read and to wire.
*/
class TempoPanel : public PanelBase
{
public:
    TempoPanel();

    void resized() override;

    StretchMode getStretchMode() const;
    AdjustMode getAdjustMode() const;

    /** Dims what does not apply. To be called where a toggle is set without notification. */
    void updateEnablement();

    /** While an analysis is under way, no other can be asked for. */
    void setAnalyzeBusy (bool busy);

    /** Shows what was detected and makes it the source of the BPM and of the key, in the place of
        detection during the run. The selected way of adjusting stays.

        @param bpm   shown with one decimal place
        @param key   an index into PipelineConfig::keyNames; one outside the table becomes its nearest end
    */
    void setAnalysisResult (double bpm, int key);

    /** Forgets what is shown as detected; what it was used for stays. */
    void clearAnalysisResult();

    std::function<void()> onAnalyze;

    juce::ToggleButton tempoOnlyToggle { "Tempo only (keep pitch)" };
    juce::ToggleButton tempoPitchToggle { "Tempo + pitch (resample)" };
    juce::ToggleButton percentToggle { "Percentage" };
    juce::ToggleButton bpmToggle { "BPM" };
    juce::ToggleButton keyToggle { "Key" };
    juce::Slider percentSlider; /**< in per cent of the tempo, from -50 to 100 */
    juce::Label bpmFromLabel { {}, "from" };
    juce::Label bpmToLabel { {}, "to" };
    juce::TextEditor bpmFromBox;
    juce::TextEditor bpmToBox;
    juce::ToggleButton bpmAutoToggle { "Auto" };
    juce::Label keyFromLabel { {}, "from" };
    juce::Label keyToLabel { {}, "to" };
    juce::ComboBox keyFromBox; /**< the ids are the key index plus one */
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
