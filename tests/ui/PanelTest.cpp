#include "pipeline/SeparationDevice.h"
#include "support/MessageThread.h"
#include "support/TemporaryFolder.h"
#include "ui/ArrowComponent.h"
#include "ui/InputPanel.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "ui/TempoPanel.h"
#include "ui/Theme.h"

#include <array>
#include <utility>

class PanelTest : public MessageThreadTest
{
protected:
    /** @returns a digit for each child in its order: 1 if it is enabled, and 0 if it is dimmed as well */
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

TEST_F (PanelTest, DrawsTheArrowInWholeCells)
{
    ArrowComponent arrow;
    arrow.setSize (40, 21); // cells of 3, from x = 8
    const auto image = snapshot (arrow);

    const std::array<const char*, 7> expected { "....#...", "....##..", "#######.", "########",
                                                "#######.", "....##..", "....#..." };
    for (auto y = 0; y < 21; ++y)
        for (auto x = 0; x < 40; ++x)
        {
            const auto column = (x - 8) / 3;
            const auto lit = x >= 8 && column < 8 && expected[static_cast<size_t> (y / 3)][column] == '#';
            ASSERT_EQ (image.getPixelAt (x, y), lit ? theme::accent : juce::Colour()) << x << ", " << y;
        }

    arrow.setSize (3, 2); // cells of 1
    EXPECT_EQ (snapshot (arrow).getPixelAt (1, 0), theme::accent);
}

TEST_F (PanelTest, DrawsAFrameARuleAndTheTitleInCapitals)
{
    const PipelineLookAndFeel look;
    PanelBase small ("q"), capital ("Q");
    for (auto* const panel : { &small, &capital })
        panel->setSize (200, 100);
    const auto image = snapshot (small), other = snapshot (capital);

    // The outline, 1.2 wide, covers 0.6 of a pixel on each side of its centre, and the rule, 1 wide, half of one.
    const auto outline = theme::panelLine.withAlpha (0.6f), rule = theme::panelLine.withAlpha (0.35f);
    const auto onOutline = theme::panel.overlaidWith (outline), onRule = theme::panel.overlaidWith (rule);

    struct Case
    {
        int x, y;
        juce::Colour colour;
    };

    for (const auto& [x, y, colour] : std::initializer_list<Case> { { 0, 0, {} },
                                                                    { 100, 0, outline },
                                                                    { 100, 1, onOutline },
                                                                    { 100, 70, theme::panel },
                                                                    { 15, 37, theme::panel },
                                                                    { 16, 37, onRule },
                                                                    { 183, 38, onRule },
                                                                    { 184, 38, theme::panel } })
    {
        EXPECT_NEAR (image.getPixelAt (x, y).getFloatAlpha(), colour.getFloatAlpha(), 0.012f) << x << ", " << y;
        EXPECT_NEAR (image.getPixelAt (x, y).getBrightness(), colour.getBrightness(), 0.012f) << x << ", " << y;
    }

    auto numLit = 0;
    for (auto y = 5; y < 35; ++y)
        for (auto x = 16; x < 40; ++x)
        {
            ASSERT_EQ (image.getPixelAt (x, y), other.getPixelAt (x, y)) << x << ", " << y;
            numLit += image.getPixelAt (x, y) != theme::panel ? 1 : 0;
        }
    EXPECT_GT (numLit, 20);
}

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

    // By the item's id, where 0 selects none.
    const std::array rates { 0, 0, 44100, 48000, 88200, 96000 }, depths { 24, 16, 24, 32, 24, 24 };
    for (size_t id = 0; id < rates.size(); ++id)
    {
        panel.rateBox.setSelectedId (static_cast<int> (id), juce::dontSendNotification);
        panel.depthBox.setSelectedId (static_cast<int> (id), juce::dontSendNotification);
        EXPECT_EQ (panel.getSampleRate(), rates[id]) << id;
        EXPECT_EQ (panel.getBitDepth(), depths[id]) << id;
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
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Percentage);
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoOnly);
    click (panel.tempoPitchToggle);
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoAndPitch);

    struct Step
    {
        juce::Button* clicked;
        AdjustMode mode;
        const char* availability;
    };

    // The five modes, the slider, four labels, the BPM row, the key row, and the button with the detected values.
    for (const auto& [clicked, mode, expected] : std::initializer_list<Step> {
             { &panel.bpmToggle, AdjustMode::Bpm, "11111 0 1100 111 000 1111" },
             { &panel.bpmAutoToggle, AdjustMode::Bpm, "11111 0 1100 011 000 1111" },
             { &panel.keyToggle, AdjustMode::Key, "11111 0 0011 000 111 1111" },
             { &panel.keyAutoToggle, AdjustMode::Key, "11111 0 0011 000 011 1111" },
             { &panel.percentToggle, AdjustMode::Percentage, "11111 1 0000 000 000 1111" },
         })
    {
        click (*clicked);
        EXPECT_EQ (panel.getAdjustMode(), mode) << expected;
        EXPECT_EQ (availability (panel), juce::String (expected).removeCharacters (" "));
    }
}

TEST_F (PanelTest, UsesTheDetectedValuesAsTheSource)
{
    TempoPanel panel;
    for (auto* const toggle : { &panel.keyToggle, &panel.keyAutoToggle, &panel.bpmToggle, &panel.bpmAutoToggle })
        click (*toggle);

    panel.setAnalysisResult (128.04, 9);
    EXPECT_EQ (panel.detectedBpmLabel.getText() + panel.detectedKeyLabel.getText(), "128.0A");
    EXPECT_EQ (panel.bpmFromBox.getText() + panel.keyFromBox.getText(), "128.0A");
    EXPECT_FALSE (panel.bpmAutoToggle.getToggleState() || panel.keyAutoToggle.getToggleState());
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Bpm);
    EXPECT_TRUE (panel.bpmFromBox.isEnabled());

    panel.setAnalysisResult (90.0, -1);
    EXPECT_EQ (panel.detectedKeyLabel.getText(), "C");
    panel.setAnalysisResult (90.0, 14);
    EXPECT_EQ (panel.keyFromBox.getSelectedId(), 12);

    panel.clearAnalysisResult();
    EXPECT_EQ (panel.detectedBpmLabel.getText() + panel.detectedKeyLabel.getText(), "----");
    EXPECT_EQ (panel.bpmFromBox.getText(), "90.0");
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
