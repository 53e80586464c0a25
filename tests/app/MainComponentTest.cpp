#include "app/MainComponent.h"

#include "app/WindowPainting.h"
#include "pipeline/SeparationDevice.h"
#include "support/MessageThread.h"
#include "ui/Theme.h"

#include <optional>
#include <utility>

class MainComponentTest : public MessageThreadTest
{
protected:
    ~MainComponentTest() override
    {
        window.reset();
        EXPECT_EQ (dynamic_cast<PipelineLookAndFeel*> (&juce::LookAndFeel::getDefaultLookAndFeel()), nullptr);
    }

    TempoPanel& tempo() { return dynamic_cast<TempoPanel&> (*window->findChildWithID ("tempoPanel")); }

    static juce::String layout (const juce::Component& parent)
    {
        juce::StringArray bounds;
        for (const auto* const child : parent.getChildren())
            if (child->isVisible())
                bounds.add (child->getBounds().toString());

        return bounds.joinIntoString (", ");
    }

    /** The accent pixels of a row, each run as x+length. */
    static juce::String accentRuns (const juce::Image& image, int y)
    {
        juce::String runs;
        for (auto x = 0, start = 0; x < image.getWidth(); start = ++x)
        {
            while (x < image.getWidth() && image.getPixelAt (x, y) == theme::accent)
                ++x;
            if (x > start)
                runs << start << "+" << x - start << " ";
        }

        return runs;
    }

    /** The texts that do not fit, even squeezed to 70 percent of their width. */
    static juce::StringArray cutTexts (const juce::Component& parent)
    {
        juce::StringArray cut;
        for (auto* const control : parent.getChildren())
        {
            const auto* const label = dynamic_cast<juce::Label*> (control);
            const auto isToggle = dynamic_cast<juce::ToggleButton*> (control) != nullptr;
            const auto text = label != nullptr ? label->getText() : isToggle ? control->getName() : juce::String();
            const auto font = label != nullptr ? label->getFont() : juce::Font (juce::FontOptions (15.0f));
            const auto room = static_cast<float> (control->getWidth() - (isToggle ? 28 : 10));

            if (text.isNotEmpty() && juce::GlyphArrangement::getStringWidth (font, text) * 0.7f > room)
                cut.add (text);
            cut.addArray (cutTexts (*control));
        }

        return cut;
    }

    std::optional<MainComponent> window { std::in_place };
};

TEST_F (MainComponentTest, PlacesEveryControl)
{
    EXPECT_EQ (layout (*window),
               "94 16 1134 58, 22 114 238 368, 300 114 228 368, 568 114 369 368, 977 114 251 368, 260 280 40 36, "
               "528 280 40 36, 937 280 40 36, 1078 522 150 34, 22 522 1042 34, 22 494 1206 20, 6 557 260 14");
    EXPECT_EQ (layout (*window->findChildWithID ("inputPanel")),
               "16 46 206 24, 16 156 206 24, 40 76 182 30, 40 112 182 22, 40 186 182 52");
    const juce::String stems ("16 46 196 26, 16 72 196 26, 16 98 196 26, 16 124 196 26, 16 158 196 26, "
                              "16 202 196 18, 16 224 196 28");
    const juce::String cpuNotice (separationHasFastDevice() ? "" : ", 16 260 196 92");
    EXPECT_EQ (layout (*window->findChildWithID ("stemPanel")), stems + cpuNotice);
    EXPECT_EQ (layout (tempo()),
               "16 46 337 24, 16 70 337 24, 16 108 337 24, 16 178 273 24, 16 242 337 24, 40 132 313 34, "
               "26 202 36 28, 122 202 28 28, 26 266 36 28, 126 266 28 28, 66 204 56 24, 154 204 56 24, "
               "220 202 64 28, 66 268 60 24, 158 268 60 24, 228 266 61 28, 269 7 84 24, 289 178 64 24, "
               "289 202 64 28, 289 266 64 28");
    EXPECT_EQ (layout (*window->findChildWithID ("outputPanel")),
               "16 46 219 18, 16 68 219 30, 16 102 219 22, 16 140 219 18, 16 162 219 28, 16 202 219 18, "
               "16 224 219 28");

    window->setSize (1120, 500);
    EXPECT_EQ (layout (*window),
               "94 16 1004 58, 22 114 210 296, 272 114 200 296, 512 114 325 296, 877 114 221 296, 232 244 40 36, "
               "472 244 40 36, 837 244 40 36, 948 450 150 34, 22 450 912 34, 22 422 1076 20, 6 485 260 14");
}

TEST_F (MainComponentTest, DrawsAnArrowFromTheInputToTheAnalyzeButton)
{
    const auto image = snapshot (*window);
    auto y = 97;

    for (const auto& [numRows, runs] : { std::pair (1, ""),
                                         { 3, "140+741 " },
                                         { 4, "140+3 878+3 " },
                                         { 3, "140+3 872+15 " },
                                         { 3, "140+3 875+9 " },
                                         { 3, "140+3 878+3 " } })
        for (const auto end = y + numRows; y < end; ++y)
            EXPECT_EQ (accentRuns (image, y), runs) << y;

    for (const auto& [x, isRule] : { std::pair (21, false), { 22, true }, { 1227, true }, { 1228, false } })
        EXPECT_EQ (image.getPixelAt (x, 88) != image.getPixelAt (x, 84), isRule) << x;
}

TEST_F (MainComponentTest, StretchesTheStripesButNotTheLogo)
{
    window->setSize (2400, 510);
    const auto image = snapshot (*window);
    EXPECT_EQ (image.getPixelAt (490, 2), juce::Colour (0xffdf7705));
    EXPECT_EQ (image.getPixelAt (530, 2), juce::Colour (0xffa03310));
    EXPECT_EQ (image.getPixelAt (28, 49), juce::Colour (0xff434343));
}

TEST_F (MainComponentTest, DrawsAGradientAndABadgeWithoutPictures)
{
    juce::Image image (juce::Image::ARGB, 200, 200, true);
    juce::Graphics g (image);
    paintBackground (g, nullptr, image.getBounds());
    EXPECT_EQ (image.getPixelAt (100, 0), theme::bg.brighter (0.07f));
    EXPECT_EQ (image.getPixelAt (100, 199), theme::bg);

    paintLogo (g, nullptr, { 20, 20, 52, 52 });
    EXPECT_EQ (image.getPixelAt (30, 30), theme::field);
    EXPECT_NE (accentRuns (image, 46), "") << "the initial";
}

TEST_F (MainComponentTest, UsesItsTypefaceAndColoursByDefault)
{
    EXPECT_EQ (juce::Font (juce::FontOptions (13.0f)).boldened().getTypefacePtr()->getName(), "Geist Pixel");
    auto& sliderText = *tempo().percentSlider.getChildComponent (0);
    EXPECT_EQ (sliderText.findColour (juce::Label::outlineColourId), theme::panelLine);
}

TEST_F (MainComponentTest, CutsNoTextAtItsFirstSize)
{
    tempo().setAnalysisResult (128.5, 1);
    tempo().percentSlider.setValue (-50.0);
    if (auto* const cpuNotice = window->findChildWithID ("stemPanel")->getChildComponent (7))
        dynamic_cast<juce::Label&> (*cpuNotice).setText ("", juce::dontSendNotification); // it has several lines

    EXPECT_EQ (cutTexts (*window).joinIntoString (", "), "");
    window->setSize (1120, 500);
    EXPECT_EQ (cutTexts (*window).joinIntoString (", "), "Auto, Auto");
}

TEST_F (MainComponentTest, TabFollowsTheReadingOrder)
{
    for (const auto& [mode, controls] : { std::pair (&tempo().percentToggle, "Tempo change in percent, , BPM, Key, "),
                                          { &tempo().bpmToggle, "BPM, Source BPM, Target BPM, Auto BPM, Key, " },
                                          { &tempo().keyToggle, "BPM, Key, Source key, Target key, Auto key, " } })
    {
        mode->setToggleState (true, juce::sendNotificationSync);

        juce::StringArray names;
        for (const auto* const control : juce::KeyboardFocusTraverser().getAllComponents (&*window))
            names.add (control->getTitle().isNotEmpty() ? control->getTitle() : control->getName());

        EXPECT_EQ (names.joinIntoString (", "),
                   juce::String ("Local audio file, Choose file..., YouTube URL, Drums, Bass, Vocals, Other, "
                                 "Full song (unsplit), Separation model, Analyze, Tempo only (keep pitch), "
                                 "Tempo + pitch (resample), Percentage, ")
                       + controls + "Choose folder..., Sample rate, Bit depth, Execute");
    }
}
