#include "pipeline/SeparationDevice.h"
#include "support/MessageThread.h"
#include "support/Snapshot.h"
#include "support/TemporaryFolder.h"
#include "ui/ArrowComponent.h"
#include "ui/InputPanel.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "ui/StemPanel.h"
#include "ui/TempoPanel.h"
#include "ui/Theme.h"

#include <array>
#include <utility>

namespace
{

using PanelTest = MessageThreadTest;

bool isAvailable (const juce::Component& control)
{
    EXPECT_FLOAT_EQ (control.getAlpha(), control.isEnabled() ? 1.0f : 0.4f);
    return control.isEnabled();
}

juce::MemoryBlock pictureOfPanel (const juce::String& title)
{
    PanelBase panel (title);
    panel.setSize (200, 100);
    juce::MemoryOutputStream stream;
    juce::PNGImageFormat().writeImageToStream (snapshot (panel), stream);
    return stream.getMemoryBlock();
}

void click (juce::Button& button)
{
    button.setToggleState (! button.getToggleState(), juce::sendNotificationSync);
}

} // namespace

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
    PanelBase panel ("q");
    panel.setSize (200, 100);
    const auto image = snapshot (panel);

    // The outline, 1.2 wide, covers 0.6 of a pixel on each side of its centre, and the rule, 1 wide, half of one.
    const auto outline = theme::panelLine.withAlpha (0.6f), rule = theme::panelLine.withAlpha (0.35f);
    const auto expectColour = [&] (int x, int y, juce::Colour expected)
    {
        EXPECT_NEAR (image.getPixelAt (x, y).getFloatAlpha(), expected.getFloatAlpha(), 0.012f) << x << ", " << y;
        EXPECT_NEAR (image.getPixelAt (x, y).getBrightness(), expected.getBrightness(), 0.012f) << x << ", " << y;
    };
    expectColour (0, 0, {});
    expectColour (100, 0, outline);
    expectColour (100, 1, theme::panel.overlaidWith (outline));
    expectColour (100, 70, theme::panel);
    for (const auto y : { 37, 38 })
        for (const auto& [x, colour] :
             { std::pair (15, theme::panel), { 16, rule }, { 183, rule }, { 184, theme::panel } })
            expectColour (x, y, theme::panel.overlaidWith (colour));

    EXPECT_EQ (pictureOfPanel ("q"), pictureOfPanel ("Q"));
    EXPECT_NE (pictureOfPanel ("q"), pictureOfPanel ("O"));
}

TEST_F (PanelTest, DimsTheSourceThatIsNotSelected)
{
    InputPanel panel;
    auto numEdits = 0;
    panel.onUrlEdited = [&] { ++numEdits; };
    EXPECT_TRUE (isAvailable (panel.chooseButton) && isAvailable (panel.fileLabel) && ! isAvailable (panel.urlBox));

    click (panel.urlToggle);
    EXPECT_FALSE (panel.localToggle.getToggleState());
    EXPECT_TRUE (! isAvailable (panel.chooseButton) && ! isAvailable (panel.fileLabel) && isAvailable (panel.urlBox));
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
    EXPECT_EQ (panel.rateBox.getText(), "Same as source");
    EXPECT_EQ (panel.depthBox.getText(), "24-bit PCM");

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

    // One digit for each child in its order: the five modes, the slider, four labels, the BPM row, the key row, and
    // the button with the detected values.
    const auto expectAvailable = [&] (const char* expected)
    {
        juce::String available;
        for (const auto* const child : panel.getChildren())
            available << (isAvailable (*child) ? 1 : 0);
        EXPECT_EQ (available, juce::String (expected).removeCharacters (" "));
    };

    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoOnly);
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Percentage);
    expectAvailable ("11111 1 0000 000 000 1111");
    click (panel.bpmToggle);
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Bpm);
    expectAvailable ("11111 0 1100 111 000 1111");
    click (panel.bpmAutoToggle);
    expectAvailable ("11111 0 1100 011 000 1111");
    click (panel.keyToggle);
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Key);
    expectAvailable ("11111 0 0011 000 111 1111");
    click (panel.keyAutoToggle);
    expectAvailable ("11111 0 0011 000 011 1111");
    click (panel.percentToggle);
    expectAvailable ("11111 1 0000 000 000 1111");

    click (panel.tempoPitchToggle);
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoAndPitch);
    panel.setAnalyzeBusy (true);
    expectAvailable ("11111 1 0000 000 000 0111");
    panel.setAnalyzeBusy (false);
    expectAvailable ("11111 1 0000 000 000 1111");
}

TEST_F (PanelTest, UsesTheDetectedValuesAsTheSource)
{
    TempoPanel panel;
    for (auto* const toggle : { &panel.keyToggle, &panel.keyAutoToggle, &panel.bpmToggle, &panel.bpmAutoToggle })
        click (*toggle);

    panel.setAnalysisResult (128.04, 9);
    EXPECT_EQ (panel.detectedBpmLabel.getText(), "128.0");
    EXPECT_EQ (panel.detectedKeyLabel.getText(), "A");
    EXPECT_EQ (panel.bpmFromBox.getText(), "128.0");
    EXPECT_EQ (panel.keyFromBox.getText(), "A");
    EXPECT_FALSE (panel.bpmAutoToggle.getToggleState() || panel.keyAutoToggle.getToggleState());
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Bpm);
    EXPECT_TRUE (isAvailable (panel.bpmFromBox));

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
    panel.percentSlider.setValue (12.3);
    EXPECT_EQ (panel.percentSlider.getTextFromValue (panel.percentSlider.getValue()), "12.5 %");
    for (const auto& [value, limited] : { std::pair (-80.0, -50.0), { 180.0, 100.0 } })
    {
        panel.percentSlider.setValue (value);
        EXPECT_EQ (panel.percentSlider.getValue(), limited);
    }

    for (auto* const box : { &panel.bpmFromBox, &panel.bpmToBox })
    {
        box->insertTextAtCaret ("1a2-0,.55555");
        EXPECT_EQ (box->getText(), "120.555");
    }
}
