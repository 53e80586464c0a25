#include "pipeline/SeparationDevice.h"
#include "support/MessageThread.h"
#include "support/TemporaryFolder.h"
#include "ui/InputPanel.h"
#include "ui/OutputPanel.h"
#include "ui/TempoPanel.h"

#include <utility>

class PanelTest : public MessageThreadTest
{
protected:
    /** @returns a digit for each child, in order: 1 if it is enabled, 0 if it is disabled and dimmed */
    static juce::String availability (const juce::Component& panel)
    {
        juce::String digits;
        for (const auto* const child : panel.getChildren())
        {
            EXPECT_FLOAT_EQ (child->getAlpha(), child->isEnabled() ? 1.0f : 0.4f);
            digits << (child->isEnabled() ? 1 : 0);
        }
        return digits;
    }

    static void click (juce::Button& button)
    {
        button.setToggleState (! button.getToggleState(), juce::sendNotificationSync);
    }
};

TEST_F (PanelTest, DimsTheSourceThatIsNotSelected)
{
    InputPanel panel;
    auto numEdits = 0;
    panel.onUrlEdited = [&] { ++numEdits; };
    EXPECT_EQ (availability (panel), "11110") << "the two sources, the file's button and name, and the link";

    click (panel.urlToggle);
    EXPECT_FALSE (panel.localToggle.getToggleState());
    EXPECT_EQ (availability (panel), "11001");
    EXPECT_EQ (numEdits, 0);

    // Pasted text can contain line breaks, but Return adds none.
    panel.urlBox.setText ("https://127.0.0.1/\nwatch", true);
    deliverMessages();
    EXPECT_GE (numEdits, 1);
    panel.urlBox.keyPressed (juce::KeyPress (juce::KeyPress::returnKey));
    EXPECT_EQ (panel.urlBox.getText(), "https://127.0.0.1/\nwatch");
}

TEST_F (PanelTest, RecognisesTheNvidiaDriver)
{
    const TemporaryFolder system;
    EXPECT_FALSE (hasNvidiaDriver (system.get()));
    system.getChild ("proc/driver/nvidia/version").create();
    EXPECT_TRUE (hasNvidiaDriver (system.get()));
}

TEST_F (PanelTest, ReportsTheSampleRateAndBitDepth)
{
    OutputPanel panel;
    EXPECT_EQ (panel.rateBox.getText() + ", " + panel.depthBox.getText(), "Same as source, 24-bit PCM");

    for (const auto& [id, rate, depth] : { std::tuple (0, 0, 24), // no item
                                           { 1, 0, 16 },
                                           { 2, 44100, 24 },
                                           { 3, 48000, 32 },
                                           { 4, 88200, 24 },
                                           { 5, 96000, 24 } })
    {
        panel.rateBox.setSelectedId (id, juce::dontSendNotification);
        panel.depthBox.setSelectedId (id, juce::dontSendNotification);
        EXPECT_EQ (std::tuple (panel.getSampleRate(), panel.getBitDepth()), std::tuple (rate, depth)) << id;
    }
}

TEST_F (PanelTest, EnablesTheControlsOfTheSelectedMode)
{
    TempoPanel panel;
    for (const auto busy : { true, false })
    {
        panel.setAnalyzeBusy (busy);
        EXPECT_EQ (availability (panel), busy ? "11111100000000000111" : "11111100000000001111");
    }
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoOnly);
    click (panel.tempoPitchToggle);
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoAndPitch);
    EXPECT_FALSE (panel.tempoOnlyToggle.getToggleState());

    // The groups are the five modes, the slider, four labels, the BPM row, the key row, and Analyze with the detected
    // values.
    for (const auto& [clicked, mode, expected] :
         { std::tuple (&panel.bpmToggle, AdjustMode::Bpm, "11111 0 1100 111 000 1111"),
           { &panel.bpmAutoToggle, AdjustMode::Bpm, "11111 0 1100 011 000 1111" },
           { &panel.keyToggle, AdjustMode::Key, "11111 0 0011 000 111 1111" },
           { &panel.keyAutoToggle, AdjustMode::Key, "11111 0 0011 000 011 1111" },
           { &panel.percentToggle, AdjustMode::Percentage, "11111 1 0000 000 000 1111" } })
    {
        click (*clicked);
        EXPECT_EQ (panel.getAdjustMode(), mode) << expected;
        EXPECT_EQ (availability (panel), juce::String (expected).removeCharacters (" "));
    }
}

TEST_F (PanelTest, UsesTheDetectedValuesAsTheSource)
{
    TempoPanel panel;
    const auto values = [&panel]
    {
        return panel.detectedBpmLabel.getText() + " " + panel.detectedKeyLabel.getText() + " from "
               + panel.bpmFromBox.getText() + " " + panel.keyFromBox.getText();
    };
    for (auto* const toggle : { &panel.keyToggle, &panel.keyAutoToggle, &panel.bpmToggle, &panel.bpmAutoToggle })
        click (*toggle);

    panel.setAnalysisResult (128.04, 9);
    EXPECT_EQ (values(), "128.0 A from 128.0 A");
    EXPECT_FALSE (panel.bpmAutoToggle.getToggleState() || panel.keyAutoToggle.getToggleState());
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Bpm);
    EXPECT_TRUE (panel.bpmFromBox.isEnabled());

    panel.setAnalysisResult (90.0, -1);
    EXPECT_EQ (values(), "90.0 C from 90.0 C");
    panel.setAnalysisResult (90.0, 14);
    panel.clearAnalysisResult();
    EXPECT_EQ (values(), "-- -- from 90.0 B");
}

TEST_F (PanelTest, AcceptsOnlyNumbersInRange)
{
    TempoPanel panel;
    for (const auto& [value, text] : { std::pair (12.3, "12.5 %"), { -80.0, "-50.0 %" }, { 180.0, "100.0 %" } })
    {
        panel.percentSlider.setValue (value);
        EXPECT_EQ (panel.percentSlider.getTextFromValue (panel.percentSlider.getValue()), text);
    }

    for (auto* const box : { &panel.bpmFromBox, &panel.bpmToBox })
    {
        box->insertTextAtCaret ("1a2-0,.55555");
        EXPECT_EQ (box->getText(), "120.555");
    }
}
