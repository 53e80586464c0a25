#include "ui/TempoPanel.h"

#include "ui/Availability.h"
#include "ui/Caption.h"
#include "ui/Theme.h"

#include <initializer_list>

namespace
{

constexpr int detectedWidth = 64;

void setUpCaption (juce::Label& caption)
{
    styleAsCaption (caption);
    caption.setJustificationType (juce::Justification::centredRight);
}

/** A row with a source, a target and, on the right, the detected value. */
struct PairRow
{
    juce::Label& fromLabel;
    juce::Component& fromBox;
    juce::Label& toLabel;
    juce::Component& toBox;
    juce::ToggleButton& autoToggle;
    juce::Label& detectedLabel;
    int boxWidth;
};

void layOut (const PairRow& row, juce::Rectangle<int> area)
{
    area.removeFromLeft (10);
    row.detectedLabel.setBounds (area.removeFromRight (detectedWidth));
    row.fromLabel.setBounds (area.removeFromLeft (36));
    area.removeFromLeft (4);
    row.fromBox.setBounds (area.removeFromLeft (row.boxWidth).reduced (0, 2));
    row.toLabel.setBounds (area.removeFromLeft (28));
    area.removeFromLeft (4);
    row.toBox.setBounds (area.removeFromLeft (row.boxWidth).reduced (0, 2));
    area.removeFromLeft (10);
    row.autoToggle.setBounds (area.removeFromLeft (64));
}

} // namespace

TempoPanel::TempoPanel() : PanelBase (juce::CharPointer_UTF8 ("3 · Tempo / Pitch"))
{
    setUpModes();
    setUpPercentage();
    setUpBpm();
    setUpKey();
    setUpAnalysis();

    const std::initializer_list<juce::Component*> children {
        &tempoOnlyToggle, &tempoPitchToggle, &percentToggle, &bpmToggle,        &keyToggle,
        &percentSlider,   &bpmFromLabel,     &bpmToLabel,    &keyFromLabel,     &keyToLabel,
        &bpmFromBox,      &bpmToBox,         &bpmAutoToggle, &keyFromBox,       &keyToBox,
        &keyAutoToggle,   &analyzeButton,    &detectedLabel, &detectedBpmLabel, &detectedKeyLabel
    };

    for (auto* const child : children)
        addAndMakeVisible (child);

    setReadingOrder();
    updateEnablement();
}

void TempoPanel::setUpModes()
{
    constexpr auto stretchGroup = 200;
    tempoOnlyToggle.setRadioGroupId (stretchGroup);
    tempoPitchToggle.setRadioGroupId (stretchGroup);
    tempoOnlyToggle.setToggleState (true, juce::dontSendNotification);

    constexpr auto adjustGroup = 201;
    for (auto* const mode : { &percentToggle, &bpmToggle, &keyToggle })
    {
        mode->setRadioGroupId (adjustGroup);
        mode->onClick = [this] { updateEnablement(); };
    }
    percentToggle.setToggleState (true, juce::dontSendNotification);
}

void TempoPanel::setUpPercentage()
{
    percentSlider.setTitle ("Tempo change in percent");
    percentSlider.setSliderStyle (juce::Slider::LinearHorizontal);
    percentSlider.setTextBoxStyle (juce::Slider::TextBoxRight, false, 64, 20);
    percentSlider.setRange (-50.0, 100.0, 0.5);
    percentSlider.setValue (0.0, juce::dontSendNotification);
    percentSlider.setTextValueSuffix (" %");
    percentSlider.setDoubleClickReturnValue (true, 0.0);
    percentSlider.setWantsKeyboardFocus (true);
}

void TempoPanel::setUpBpm()
{
    setUpCaption (bpmFromLabel);
    setUpCaption (bpmToLabel);
    bpmFromBox.setTitle ("Source BPM");
    bpmToBox.setTitle ("Target BPM");

    for (auto* const box : { &bpmFromBox, &bpmToBox })
    {
        box->setInputRestrictions (7, "0123456789.");
        box->setJustification (juce::Justification::centred);
        box->setFont (juce::Font (juce::FontOptions (13.0f)));
    }

    bpmAutoToggle.setTitle ("Auto BPM");
    bpmAutoToggle.setTooltip ("Detect the source BPM during the run");
    bpmAutoToggle.onClick = [this] { updateEnablement(); };
}

void TempoPanel::setUpKey()
{
    setUpCaption (keyFromLabel);
    setUpCaption (keyToLabel);
    keyFromBox.setTitle ("Source key");
    keyToBox.setTitle ("Target key");

    for (auto* const box : { &keyFromBox, &keyToBox })
    {
        auto id = 0;
        for (const auto* const name : PipelineConfig::keyNames)
            box->addItem (name, ++id);
        box->setSelectedId (1, juce::dontSendNotification);
    }

    keyAutoToggle.setTitle ("Auto key");
    keyAutoToggle.setTooltip ("Detect the source key during the run");
    keyAutoToggle.onClick = [this] { updateEnablement(); };
}

void TempoPanel::setUpAnalysis()
{
    analyzeButton.setTooltip ("Detect the BPM and key of the selected input file, so you know your starting point");
    analyzeButton.onClick = [this] { juce::NullCheckedInvocation::invoke (onAnalyze); };

    detectedLabel.setColour (juce::Label::textColourId, theme::textDim);
    detectedLabel.setFont (juce::Font (juce::FontOptions (11.0f)));
    detectedLabel.setJustificationType (juce::Justification::centred);

    for (auto* const value : { &detectedBpmLabel, &detectedKeyLabel })
    {
        value->setColour (juce::Label::textColourId, theme::accent);
        value->setFont (juce::Font (juce::FontOptions (16.0f)));
        value->setJustificationType (juce::Justification::centred);
    }
}

/** Sets the order of the controls explicitly, because JUCE sorts them by their top edges, and a row's boxes start lower
    than its toggle.
*/
void TempoPanel::setReadingOrder()
{
    const std::initializer_list<juce::Component*> readingOrder {
        &analyzeButton, &tempoOnlyToggle, &tempoPitchToggle, &percentToggle, &percentSlider,
        &bpmToggle,     &detectedLabel,   &bpmFromLabel,     &bpmFromBox,    &bpmToLabel,
        &bpmToBox,      &bpmAutoToggle,   &detectedBpmLabel, &keyToggle,     &keyFromLabel,
        &keyFromBox,    &keyToLabel,      &keyToBox,         &keyAutoToggle, &detectedKeyLabel
    };

    auto order = 0;
    for (auto* const control : readingOrder)
        control->setExplicitFocusOrder (++order);
}

void TempoPanel::resized()
{
    analyzeButton.setBounds (titleStrip().removeFromRight (84).withSizeKeepingCentre (84, 24));

    auto area = contentArea();

    tempoOnlyToggle.setBounds (area.removeFromTop (24));
    tempoPitchToggle.setBounds (area.removeFromTop (24));
    area.removeFromTop (14);

    percentToggle.setBounds (area.removeFromTop (24));
    percentSlider.setBounds (area.removeFromTop (34).withTrimmedLeft (indent));
    area.removeFromTop (12);

    auto heading = area.removeFromTop (24);
    detectedLabel.setBounds (heading.removeFromRight (detectedWidth));
    bpmToggle.setBounds (heading);

    layOut ({ bpmFromLabel, bpmFromBox, bpmToLabel, bpmToBox, bpmAutoToggle, detectedBpmLabel, 56 },
            area.removeFromTop (28));
    area.removeFromTop (12);

    keyToggle.setBounds (area.removeFromTop (24));
    layOut ({ keyFromLabel, keyFromBox, keyToLabel, keyToBox, keyAutoToggle, detectedKeyLabel, 60 },
            area.removeFromTop (28));
}

StretchMode TempoPanel::getStretchMode() const
{
    return tempoPitchToggle.getToggleState() ? StretchMode::TempoAndPitch : StretchMode::TempoOnly;
}

AdjustMode TempoPanel::getAdjustMode() const
{
    if (bpmToggle.getToggleState())
        return AdjustMode::Bpm;

    return keyToggle.getToggleState() ? AdjustMode::Key : AdjustMode::Percentage;
}

void TempoPanel::updateEnablement()
{
    const auto percent = percentToggle.getToggleState();
    setAvailable (percentSlider, percent);

    const auto bpm = bpmToggle.getToggleState();
    setAvailable (bpmFromLabel, bpm);
    setAvailable (bpmFromBox, bpm && ! bpmAutoToggle.getToggleState());
    setAvailable (bpmToLabel, bpm);
    setAvailable (bpmToBox, bpm);
    setAvailable (bpmAutoToggle, bpm);

    const auto key = keyToggle.getToggleState();
    setAvailable (keyFromLabel, key);
    setAvailable (keyFromBox, key && ! keyAutoToggle.getToggleState());
    setAvailable (keyToLabel, key);
    setAvailable (keyToBox, key);
    setAvailable (keyAutoToggle, key);
}

void TempoPanel::setAnalyzeBusy (bool busy)
{
    setAvailable (analyzeButton, ! busy);
}

void TempoPanel::clearAnalysisResult()
{
    detectedBpmLabel.setText ("--", juce::dontSendNotification);
    detectedKeyLabel.setText ("--", juce::dontSendNotification);
}

void TempoPanel::setAnalysisResult (double bpm, int key)
{
    const auto index = juce::jlimit (0, PipelineConfig::numKeys - 1, key);
    const juce::String bpmText (bpm, 1);

    detectedBpmLabel.setText (bpmText, juce::dontSendNotification);
    detectedKeyLabel.setText (PipelineConfig::keyNames[static_cast<size_t> (index)], juce::dontSendNotification);

    bpmFromBox.setText (bpmText, false);
    keyFromBox.setSelectedId (index + 1, juce::dontSendNotification);

    for (auto* const toggle : { &bpmAutoToggle, &keyAutoToggle })
    {
        toggle->setEnabled (true); // a disabled button ignores setToggleState() in JUCE 8.0.12
        toggle->setToggleState (false, juce::dontSendNotification);
    }

    updateEnablement();
}
