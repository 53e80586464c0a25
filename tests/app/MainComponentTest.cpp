#include "app/MainComponent.h"

#include "support/MessageThread.h"

#include <optional>
#include <utility>

class MainComponentTest : public MessageThreadTest
{
protected:
    MainComponentTest()
    {
        // These texts depend on the machine.
        child<StemPanel> ("stemPanel").cpuNotice.setVisible (false);
        child<OutputPanel> ("outputPanel").folderLabel.setText ("/home/me/Desktop", juce::dontSendNotification);
    }

    ~MainComponentTest() override
    {
        window.reset();
        EXPECT_EQ (dynamic_cast<PipelineLookAndFeel*> (&juce::LookAndFeel::getDefaultLookAndFeel()), nullptr);
    }

    template <typename Child>
    Child& child (const char* id)
    {
        return dynamic_cast<Child&> (*window->findChildWithID (id));
    }

    /** Compares the window with a picture. If they differ, saves a new picture, to replace the old one if the change
        is intended.
    */
    void expectToLookLike (const juce::File& picture)
    {
        const auto image = window->createComponentSnapshot (window->getLocalBounds());
        const auto expected = juce::ImageFileFormat::loadFrom (picture);
        juce::Rectangle<int> different;
        for (auto y = 0; y < image.getHeight(); ++y)
            for (auto x = 0; x < image.getWidth(); ++x)
                if (! areSimilar (image.getPixelAt (x, y), expected.getPixelAt (x, y)))
                    different = different.getUnion ({ x, y, 1, 1 });

        if (different.isEmpty() && image.getBounds() == expected.getBounds())
            return;

        const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (picture.getFileName());
        file.deleteFile();
        juce::PNGImageFormat().writeImageToStream (image, *file.createOutputStream());
        ADD_FAILURE() << file.getFullPathName() << " differs at " << different.toString();
    }

    static bool areSimilar (juce::Colour a, juce::Colour b)
    {
        return std::abs (a.getRed() - b.getRed()) + std::abs (a.getGreen() - b.getGreen())
                   + std::abs (a.getBlue() - b.getBlue())
               <= 12;
    }

    std::optional<MainComponent> window { std::in_place };
};

TEST_F (MainComponentTest, LooksLikeItsPictures)
{
    // The position of text depends on the system and on JUCE's version.
    const auto pictures = juce::File (KELVANE_PICTURES)
                              .getChildFile (juce::SystemStats::getOperatingSystemName())
                              .getChildFile (juce::SystemStats::getJUCEVersion());
    if (! pictures.isDirectory())
        GTEST_SKIP() << "There is no " << pictures.getFullPathName();

    expectToLookLike (pictures.getChildFile ("window.png"));
    window->setSize (1500, 500);
    child<TempoPanel> ("tempoPanel").bpmToggle.setToggleState (true, juce::sendNotificationSync);
    child<TempoPanel> ("tempoPanel").setAnalysisResult (128.5, 1);
    child<TempoPanel> ("tempoPanel").percentSlider.setValue (-50.0);
    expectToLookLike (pictures.getChildFile ("wide.png"));
}

TEST_F (MainComponentTest, TabFollowsTheReadingOrder)
{
    for (const auto& [mode, controls] :
         { std::pair (&child<TempoPanel> ("tempoPanel").percentToggle, "Tempo change in percent, , BPM, Key, "),
           { &child<TempoPanel> ("tempoPanel").bpmToggle, "BPM, Source BPM, Target BPM, Auto BPM, Key, " },
           { &child<TempoPanel> ("tempoPanel").keyToggle, "BPM, Key, Source key, Target key, Auto key, " } })
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
