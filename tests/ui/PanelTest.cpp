#include "support/MessageThread.h"
#include "support/Snapshot.h"
#include "support/TemporaryFolder.h"
#include "ui/ArrowComponent.h"
#include "ui/InputPanel.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "pipeline/SeparationDevice.h"
#include "ui/StemPanel.h"
#include "ui/TempoPanel.h"
#include "ui/Theme.h"

#include <array>
#include <cstdlib>

namespace
{

using Bounds = juce::Rectangle<int>;

struct PanelTest : MessageThreadTest
{
};

template <typename Control>
Control& childAt (juce::Component& parent, int index)
{
    return dynamic_cast<Control&> (*parent.getChildComponent (index));
}

bool isAvailable (const juce::Component& control)
{
    EXPECT_FLOAT_EQ (control.getAlpha(), control.isEnabled() ? 1.0f : 0.4f);
    return control.isEnabled();
}

/** As close as a renderer's rounding leaves it. */
bool isClose (juce::Colour colour, juce::Colour expected)
{
    const auto close = [] (juce::uint8 a, juce::uint8 b) { return std::abs (a - b) <= 3; };
    return close (colour.getAlpha(), expected.getAlpha()) && close (colour.getRed(), expected.getRed())
           && close (colour.getGreen(), expected.getGreen()) && close (colour.getBlue(), expected.getBlue());
}

bool isSame (const juce::Image& a, const juce::Image& b)
{
    for (auto y = 0; y < a.getHeight(); ++y)
        for (auto x = 0; x < a.getWidth(); ++x)
            if (a.getPixelAt (x, y) != b.getPixelAt (x, y))
                return false;

    return a.getBounds() == b.getBounds();
}

void click (juce::Button& button)
{
    button.setToggleState (! button.getToggleState(), juce::sendNotificationSync);
}

} // namespace

TEST_F (PanelTest, HasArrowsMadeOfWholeCellsInTheMiddle)
{
    ArrowComponent arrow;
    arrow.setSize (40, 21); // cells of 3, 8 from the left
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

    arrow.setSize (3, 2); // cells of 1, for the most part outside
    EXPECT_EQ (snapshot (arrow).getPixelAt (1, 0), theme::accent);
}

TEST_F (PanelTest, HasAFrameATitleInCapitalsAndARule)
{
    const PipelineLookAndFeel look;
    PanelBase panel ("q");
    panel.setSize (200, 100);
    const auto image = snapshot (panel);

    // The outline, 1.2 thick around 1 from the edge, covers 0.6 of the pixels on both of its sides. The
    // rule, 1 thick around a pixel's edge, covers half of them.
    EXPECT_EQ (image.getPixelAt (0, 0).getAlpha(), 0);
    EXPECT_EQ (image.getPixelAt (100, 70), theme::panel);
    EXPECT_TRUE (isClose (image.getPixelAt (100, 0), theme::panelLine.withAlpha (0.6f)));
    EXPECT_TRUE (isClose (image.getPixelAt (100, 1), theme::panel.overlaidWith (theme::panelLine.withAlpha (0.6f))));

    const auto rule = theme::panel.overlaidWith (theme::panelLine.withAlpha (0.35f));
    for (const auto x : { 16, 100, 183 })
    {
        EXPECT_TRUE (isClose (image.getPixelAt (x, 37), rule)) << x;
        EXPECT_TRUE (isClose (image.getPixelAt (x, 38), rule)) << x;
    }
    EXPECT_EQ (image.getPixelAt (15, 38), theme::panel);
    EXPECT_EQ (image.getPixelAt (184, 38), theme::panel);

    PanelBase capital ("Q");
    capital.setSize (200, 100);
    EXPECT_TRUE (isSame (image, snapshot (capital)));
    PanelBase other ("O");
    other.setSize (200, 100);
    EXPECT_FALSE (isSame (image, snapshot (other)));
}

TEST_F (PanelTest, InputDimsTheSourceThatIsNotSelected)
{
    InputPanel panel;
    auto edited = 0, chosen = 0;
    panel.onUrlEdited = [&] { ++edited; };
    panel.onFileChosen = [&] { ++chosen; };

    EXPECT_TRUE (panel.localToggle.getToggleState());
    EXPECT_TRUE (isAvailable (panel.chooseButton) && isAvailable (panel.fileLabel));
    EXPECT_FALSE (isAvailable (panel.urlBox));

    click (panel.urlToggle);
    EXPECT_FALSE (panel.localToggle.getToggleState());
    EXPECT_FALSE (isAvailable (panel.chooseButton) || isAvailable (panel.fileLabel));
    EXPECT_TRUE (isAvailable (panel.urlBox));
    EXPECT_EQ (edited + chosen, 0);

    // Pasted text may hold line breaks; Return makes none.
    panel.urlBox.setText ("https://127.0.0.1/\nwatch", true);
    deliverMessages();
    panel.urlBox.keyPressed (juce::KeyPress (juce::KeyPress::returnKey));
    deliverMessages();
    EXPECT_EQ (panel.urlBox.getText(), "https://127.0.0.1/\nwatch");
    EXPECT_GE (edited, 1);
    EXPECT_EQ (chosen, 0);
}

TEST_F (PanelTest, StemsAreToldInTheirOrderAndTheFullSongApart)
{
    StemPanel panel;
    bool stems[4] {};
    panel.getStems (stems);
    EXPECT_TRUE (stems[0] && stems[1] && stems[2] && stems[3]);
    EXPECT_FALSE (panel.fullSongToggle.getToggleState());

    click (panel.fullSongToggle);
    for (const auto stem : { 1, 3 })
        click (childAt<juce::ToggleButton> (panel, stem));
    panel.getStems (stems);
    EXPECT_TRUE (stems[0] && ! stems[1] && stems[2] && ! stems[3]);
    EXPECT_TRUE (panel.fullSongToggle.getToggleState());
    EXPECT_EQ (panel.getModelName(), "htdemucs");
}

TEST_F (PanelTest, StemsSayThatSeparationIsSlowWhereThereIsNoGpu)
{
    StemPanel panel;
    constexpr auto withoutNotice = 7;
    EXPECT_EQ (panel.getNumChildComponents(), separationHasFastDevice() ? withoutNotice : withoutNotice + 1);

#if JUCE_LINUX
    const TemporaryFolder system;
    EXPECT_FALSE (hasNvidiaDriver (system.get()));
    system.getChild ("proc/driver/nvidia/version").create();
    EXPECT_TRUE (hasNvidiaDriver (system.get()));
#endif
}

TEST_F (PanelTest, OutputTellsRateAndDepth)
{
    OutputPanel panel;
    auto& rate = childAt<juce::ComboBox> (panel, 4);
    auto& depth = childAt<juce::ComboBox> (panel, 6);
    EXPECT_EQ (panel.getSampleRate(), 0);
    EXPECT_EQ (panel.getBitDepth(), 24);

    const std::array rates { 0, 0, 44100, 48000, 88200, 96000 };
    for (auto id = 0; id < static_cast<int> (rates.size()); ++id)
    {
        rate.setSelectedId (id, juce::dontSendNotification);
        EXPECT_EQ (panel.getSampleRate(), rates[static_cast<size_t> (id)]) << id;
    }

    const std::array depths { 24, 16, 24, 32 };
    for (auto id = 0; id < static_cast<int> (depths.size()); ++id)
    {
        depth.setSelectedId (id, juce::dontSendNotification);
        EXPECT_EQ (panel.getBitDepth(), depths[static_cast<size_t> (id)]) << id;
    }
}

TEST_F (PanelTest, TempoEnablesWhatAppliesToTheModeAndTheAutoToggles)
{
    TempoPanel panel;

    for (const auto mode : { AdjustMode::Percentage, AdjustMode::Bpm, AdjustMode::Key })
        for (const auto automatic : { false, true })
        {
            auto& toggle = mode == AdjustMode::Percentage ? panel.percentToggle
                           : mode == AdjustMode::Bpm      ? panel.bpmToggle
                                                          : panel.keyToggle;
            panel.bpmAutoToggle.setToggleState (automatic, juce::sendNotificationSync);
            panel.keyAutoToggle.setToggleState (automatic, juce::sendNotificationSync);
            toggle.setToggleState (true, juce::sendNotificationSync);
            SCOPED_TRACE (testing::Message() << "mode " << static_cast<int> (mode) << ", auto " << automatic);

            const auto bpm = mode == AdjustMode::Bpm, key = mode == AdjustMode::Key;
            EXPECT_EQ (panel.getAdjustMode(), mode);
            EXPECT_EQ (isAvailable (panel.percentSlider), mode == AdjustMode::Percentage);

            for (auto* const control : std::initializer_list<juce::Component*> {
                     &panel.bpmFromLabel, &panel.bpmToLabel, &panel.bpmToBox, &panel.bpmAutoToggle })
                EXPECT_EQ (isAvailable (*control), bpm);
            EXPECT_EQ (isAvailable (panel.bpmFromBox), bpm && ! automatic);

            for (auto* const control : std::initializer_list<juce::Component*> {
                     &panel.keyFromLabel, &panel.keyToLabel, &panel.keyToBox, &panel.keyAutoToggle })
                EXPECT_EQ (isAvailable (*control), key);
            EXPECT_EQ (isAvailable (panel.keyFromBox), key && ! automatic);

            for (auto* const control : std::initializer_list<juce::Component*> {
                     &panel.tempoOnlyToggle, &panel.tempoPitchToggle, &panel.percentToggle, &panel.bpmToggle,
                     &panel.keyToggle, &panel.analyzeButton, &panel.detectedLabel })
                EXPECT_TRUE (isAvailable (*control));
        }

    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoOnly);
    EXPECT_TRUE (panel.tempoOnlyToggle.getToggleState());
    click (panel.tempoPitchToggle);
    EXPECT_EQ (panel.getStretchMode(), StretchMode::TempoAndPitch);
}

TEST_F (PanelTest, TempoTakesAnAnalysisForTheSource)
{
    TempoPanel panel;
    click (panel.bpmToggle);
    click (panel.bpmAutoToggle);
    click (panel.keyAutoToggle);
    ASSERT_FALSE (panel.bpmFromBox.isEnabled());

    panel.setAnalysisResult (128.04, 9);
    EXPECT_EQ (panel.detectedBpmLabel.getText(), "128.0");
    EXPECT_EQ (panel.detectedKeyLabel.getText(), "A");
    EXPECT_EQ (panel.bpmFromBox.getText(), "128.0");
    EXPECT_EQ (panel.keyFromBox.getSelectedId(), 10);
    EXPECT_FALSE (panel.bpmAutoToggle.getToggleState() || panel.keyAutoToggle.getToggleState());
    EXPECT_EQ (panel.getAdjustMode(), AdjustMode::Bpm);
    EXPECT_TRUE (isAvailable (panel.bpmFromBox));

    panel.setAnalysisResult (90.0, -1);
    EXPECT_EQ (panel.detectedKeyLabel.getText(), "C");
    panel.setAnalysisResult (90.0, 14);
    EXPECT_EQ (panel.keyFromBox.getText(), "B");

    panel.clearAnalysisResult();
    EXPECT_EQ (panel.detectedBpmLabel.getText(), "--");
    EXPECT_EQ (panel.detectedKeyLabel.getText(), "--");
    EXPECT_EQ (panel.bpmFromBox.getText(), "90.0");

    panel.setAnalyzeBusy (true);
    EXPECT_FALSE (isAvailable (panel.analyzeButton));
    panel.setAnalyzeBusy (false);
    EXPECT_TRUE (isAvailable (panel.analyzeButton));
}

TEST_F (PanelTest, TempoRefusesWhatIsNoNumber)
{
    TempoPanel panel;
    panel.percentSlider.setValue (12.3);
    EXPECT_EQ (panel.percentSlider.getTextFromValue (panel.percentSlider.getValue()), "12.5 %");
    panel.percentSlider.setValue (-80.0);
    EXPECT_EQ (panel.percentSlider.getValue(), -50.0);

    panel.bpmToBox.insertTextAtCaret ("1a2-0,.55555");
    EXPECT_EQ (panel.bpmToBox.getText(), "120.555");
}

TEST_F (PanelTest, HasItsControlsWhereTheyBelong)
{
    InputPanel source;
    source.setSize (238, 368);
    EXPECT_EQ (source.chooseButton.getBounds(), Bounds (40, 76, 182, 30));
    EXPECT_EQ (source.fileLabel.getBounds(), Bounds (40, 112, 182, 22));
    EXPECT_EQ (source.urlBox.getBounds(), Bounds (40, 186, 182, 52));
    source.setSize (200, 50); // too low for the title: what there is begins where the panel's margin ends
    EXPECT_EQ (source.localToggle.getBounds(), Bounds (16, 34, 168, 0));

    StemPanel stems;
    stems.setSize (228, 368);
    EXPECT_EQ (stems.fullSongToggle.getBounds(), Bounds (16, 158, 196, 26));
    EXPECT_EQ (stems.getChildComponent (6)->getBounds(), Bounds (16, 224, 196, 28));
    if (auto* const notice = stems.getChildComponent (7))
    {
        EXPECT_EQ (notice->getBounds(), Bounds (16, 260, 196, 92));
    }

    OutputPanel output;
    output.setSize (251, 368);
    EXPECT_EQ (output.getChildComponent (2)->getBounds(), Bounds (16, 102, 219, 22));
    EXPECT_EQ (output.getChildComponent (6)->getBounds(), Bounds (16, 224, 219, 28));

    TempoPanel panel;
    panel.setSize (420, 340);
    EXPECT_EQ (panel.analyzeButton.getBounds(), Bounds (320, 7, 84, 24));
    EXPECT_EQ (panel.percentSlider.getBounds(), Bounds (40, 132, 364, 34));
    EXPECT_EQ (panel.bpmToggle.getBounds(), Bounds (16, 178, 324, 24));
    EXPECT_EQ (panel.detectedLabel.getBounds(), Bounds (340, 178, 64, 24));
    EXPECT_EQ (panel.bpmFromBox.getBounds(), Bounds (66, 204, 56, 24));
    EXPECT_EQ (panel.bpmAutoToggle.getBounds(), Bounds (220, 202, 64, 28));
    EXPECT_EQ (panel.keyToggle.getBounds(), Bounds (16, 242, 388, 24));
    EXPECT_EQ (panel.keyFromBox.getBounds(), Bounds (66, 268, 60, 24));
    EXPECT_EQ (panel.keyAutoToggle.getBounds(), Bounds (228, 266, 64, 28));

    panel.setSize (260, 340);
    EXPECT_EQ (panel.bpmAutoToggle.getWidth(), 0);
    EXPECT_EQ (panel.bpmToBox.getWidth(), 26);
}
