#include "app/MainComponent.h"

#include "app/WindowPainting.h"
#include "support/MessageThread.h"
#include "support/Snapshot.h"
#include "ui/Theme.h"

namespace
{

using Bounds = juce::Rectangle<int>;

/** The children in the order in which they are drawn. */
enum Child
{
    title,
    input,
    stems,
    tempo,
    output,
    arrow1,
    arrow2,
    arrow3,
    execute,
    progressBar,
    status,
    footer
};

class MainComponentTest : public MessageThreadTest
{
protected:
    ~MainComponentTest() override
    {
        owned.reset();
        EXPECT_EQ (dynamic_cast<PipelineLookAndFeel*> (&juce::LookAndFeel::getDefaultLookAndFeel()), nullptr);
    }

    Bounds boundsOf (Child child) const { return window.getChildComponent (child)->getBounds(); }

private:
    std::optional<MainComponent> owned { std::in_place };

protected:
    MainComponent& window = *owned;
};

float widthOf (float height, const juce::String& text)
{
    return juce::GlyphArrangement::getStringWidth (juce::Font (juce::FontOptions (height)), text);
}

/** Whether a text has no room where it is drawn, squeezed as far as may be. */
bool isCut (const juce::Component& control)
{
    constexpr auto squeezed = 0.7f;

    if (const auto* const label = dynamic_cast<const juce::Label*> (&control))
    {
        const auto area = label->getBorderSize().subtractedFrom (label->getLocalBounds()).toFloat();
        const auto height = label->getFont().getHeight();
        const auto lines = juce::jmax (1.0f, std::floor (area.getHeight() / height));
        const auto scale = juce::jmax (squeezed, label->getMinimumHorizontalScale());
        return widthOf (height, label->getText()) * scale > area.getWidth() * lines;
    }

    if (const auto* const toggle = dynamic_cast<const juce::ToggleButton*> (&control))
    {
        const auto height = juce::jmin (15.0f, static_cast<float> (toggle->getHeight()) * 0.75f);
        const auto room = static_cast<float> (toggle->getWidth()) - height * 1.1f - 12.0f;
        return widthOf (height, toggle->getButtonText()) * squeezed > room;
    }

    return false;
}

juce::String nameOf (const juce::Component& control)
{
    if (control.getTitle().isNotEmpty())
        return control.getTitle();

    const auto* const label = dynamic_cast<const juce::Label*> (&control);
    return label != nullptr ? label->getText() : control.getName();
}

juce::StringArray namesOfCut (const juce::Component& parent)
{
    juce::StringArray names;

    for (const auto* const child : parent.getChildren())
    {
        if (child->isVisible() && isCut (*child))
            names.add (nameOf (*child));
        names.addArray (namesOfCut (*child));
    }

    return names;
}

} // namespace

TEST_F (MainComponentTest, PlacesEverythingAtItsFirstSize)
{
    EXPECT_EQ (window.getLocalBounds(), Bounds (1250, 572));
    EXPECT_EQ (boundsOf (title), Bounds (94, 16, 1134, 58));
    EXPECT_EQ (boundsOf (input), Bounds (22, 114, 238, 368));
    EXPECT_EQ (boundsOf (stems), Bounds (300, 114, 228, 368));
    EXPECT_EQ (boundsOf (tempo), Bounds (568, 114, 369, 368));
    EXPECT_EQ (boundsOf (output), Bounds (977, 114, 251, 368));
    EXPECT_EQ (boundsOf (arrow1), Bounds (260, 280, 40, 36));
    EXPECT_EQ (boundsOf (arrow2), Bounds (528, 280, 40, 36));
    EXPECT_EQ (boundsOf (arrow3), Bounds (937, 280, 40, 36));
    EXPECT_EQ (boundsOf (status), Bounds (22, 494, 1206, 20));
    EXPECT_EQ (boundsOf (progressBar), Bounds (22, 522, 1042, 34));
    EXPECT_EQ (boundsOf (execute), Bounds (1078, 522, 150, 34));
    EXPECT_EQ (boundsOf (footer), Bounds (6, 557, 260, 14));
}

TEST_F (MainComponentTest, GivesThePanelsAllTheWidthAndAllTheHeightToSpare)
{
    window.setSize (1120, 500);
    EXPECT_EQ (boundsOf (input).getWidth(), 210);
    EXPECT_EQ (boundsOf (stems).getWidth(), 200);
    EXPECT_EQ (boundsOf (tempo).getWidth(), 325);
    EXPECT_EQ (boundsOf (output).getWidth(), 221);

    for (auto width = 1120; width < 1320; width += 7)
    {
        window.setSize (width, width / 2);
        EXPECT_EQ (boundsOf (output).getRight(), width - 22);
        EXPECT_EQ (boundsOf (input).getHeight(), width / 2 - 204);
        EXPECT_EQ (boundsOf (execute).getBottom(), width / 2 - 16);
    }
}

TEST_F (MainComponentTest, JoinsTheInputToTheAnalyzeButton)
{
    const auto image = snapshot (window);
    const auto top = 114, sourceX = 22 + 119 - 1, targetX = 568 + 369 - 16 - 42;

    for (auto y = top - 16; y < top; ++y)
        EXPECT_EQ (image.getPixelAt (sourceX + 1, y), theme::accent) << y;
    for (auto x = sourceX; x < targetX; ++x)
        EXPECT_EQ (image.getPixelAt (x, top - 15), theme::accent) << x;

    const auto widthAt = [&] (int y)
    {
        auto width = 0;
        for (auto x = targetX - 20; x < targetX + 20; ++x)
            width += image.getPixelAt (x, y) == theme::accent ? 1 : 0;
        return width;
    };
    const std::array<int, 13> widths { 3, 3, 3, 3, 15, 15, 15, 9, 9, 9, 3, 3, 3 };
    for (auto y = 0; y < 13; ++y)
        EXPECT_EQ (widthAt (top - 13 + y), widths[static_cast<size_t> (y)]) << y;

    EXPECT_NE (image.getPixelAt (600, 88), image.getPixelAt (600, 84)) << "header rule";
}

TEST_F (MainComponentTest, PaintsItsPictures)
{
    window.setSize (2400, 510); // the stripes stretch, the logo does not
    const auto image = snapshot (window);
    EXPECT_EQ (image.getPixelAt (490, 2), juce::Colour (0xffdf7705));
    EXPECT_EQ (image.getPixelAt (530, 2), juce::Colour (0xffa03310));
    EXPECT_EQ (image.getPixelAt (28, 49), juce::Colour (0xff434343)) << "the device's face";
}

TEST_F (MainComponentTest, PaintsWithoutItsPictures)
{
    juce::Image image (juce::Image::ARGB, 200, 200, true);
    juce::Graphics g (image);
    paintBackground (g, nullptr, image.getBounds());
    EXPECT_EQ (image.getPixelAt (100, 0), theme::bg.brighter (0.07f));
    EXPECT_EQ (image.getPixelAt (100, 199), theme::bg);

    paintLogo (g, nullptr, { 20, 20, 52, 52 });
    EXPECT_EQ (image.getPixelAt (30, 30), theme::field);
    auto lit = 0;
    for (auto y = 30; y < 62; ++y)
        for (auto x = 30; x < 62; ++x)
            lit += image.getPixelAt (x, y) != theme::field ? 1 : 0;
    EXPECT_GT (lit, 40) << "the initial";
}

TEST_F (MainComponentTest, GivesEveryTextThePixelTypeface)
{
    const juce::Font plain (juce::FontOptions (13.0f));
    EXPECT_EQ (plain.getTypefacePtr()->getName(), "Geist Pixel");
    EXPECT_EQ (plain.boldened().getTypefacePtr()->getName(), "Geist Pixel");

    const std::function<void (juce::Component&)> checkLabels = [&] (juce::Component& parent)
    {
        for (auto* const one : parent.getChildren())
        {
            if (auto* const label = dynamic_cast<juce::Label*> (one))
            {
                EXPECT_EQ (label->getFont().getTypefacePtr()->getName(), "Geist Pixel") << label->getText();
            }
            checkLabels (*one);
        }
    };
    checkLabels (window);

    auto& slider = dynamic_cast<TempoPanel&> (*window.getChildComponent (tempo)).percentSlider;
    auto& number = dynamic_cast<juce::Label&> (*slider.getChildComponent (0));
    EXPECT_EQ (number.findColour (juce::Label::outlineColourId), theme::panelLine)
        << "a control keeps what an earlier look and feel has given it";
}

TEST_F (MainComponentTest, CutsNoTextButWhereALowOrNarrowWindowHasNoRoom)
{
    auto& panel = dynamic_cast<TempoPanel&> (*window.getChildComponent (tempo));
    panel.setAnalysisResult (128.5, 1);
    panel.percentSlider.setValue (-50.0);

    EXPECT_EQ (namesOfCut (window).joinIntoString (", "), "");
    window.setSize (1920, 1080);
    EXPECT_EQ (namesOfCut (window).joinIntoString (", "), "");

    window.setSize (1120, 500);
    const auto names = namesOfCut (window);
    EXPECT_TRUE (names.contains ("Auto BPM") && names.contains ("Auto key"));
    for (const auto& name : names)
        EXPECT_TRUE (name.startsWith ("Auto ") || name.startsWith ("Heads-up")) << name;
}

TEST_F (MainComponentTest, LeadsTabThroughTheControlsAsTheyAreSeen)
{
    auto& panel = dynamic_cast<TempoPanel&> (*window.getChildComponent (tempo));

    const std::array<std::pair<juce::ToggleButton*, const char*>, 3> modes {
        { { &panel.percentToggle, "Percentage, Tempo change in percent, , BPM, Key, " },
          { &panel.bpmToggle, "Percentage, BPM, Source BPM, Target BPM, Auto BPM, Key, " },
          { &panel.keyToggle, "Percentage, BPM, Key, Source key, Target key, Auto key, " } }
    };

    for (const auto& [mode, controls] : modes)
    {
        mode->setToggleState (true, juce::sendNotificationSync);

        juce::StringArray names;
        for (const auto* const control : juce::KeyboardFocusTraverser().getAllComponents (&window))
            names.add (control->getTitle().isNotEmpty() ? control->getTitle() : control->getName());

        EXPECT_EQ (names.joinIntoString (", "),
                   juce::String ("Local audio file, Choose file..., YouTube URL, Drums, Bass, Vocals, Other, "
                                 "Full song (unsplit), Separation model, Analyze, Tempo only (keep pitch), "
                                 "Tempo + pitch (resample), ")
                       + controls + "Choose folder..., Sample rate, Bit depth, Execute");
    }
}
