#include "ControllerFixture.h"

class DropControlTest : public ControllerFixture
{
protected:
    void dropFiles (const juce::StringArray& paths)
    {
        window->takeDroppedFiles (paths);
        deliverMessages();
    }

    void dropText (const juce::String& text)
    {
        window->takeDroppedText (text);
        deliverMessages();
    }
};

TEST_F (DropControlTest, UsesADroppedFileOrLinkAsTheSong)
{
    const auto other = folder.getChild ("other song.WAV");
    song.copyFileTo (other);
    tempo().setAnalysisResult (112.0, 2);

    // The same song keeps its analysis, even if the link was selected.
    turn (input().urlToggle, true);
    dropFiles ({ song.getFullPathName() });
    EXPECT_TRUE (input().localToggle.getToggleState() && input().chooseButton.isEnabled());
    EXPECT_EQ (detectedBpm(), "112.0");

    dropFiles ({ other.getFullPathName() });
    EXPECT_EQ (input().selectedFile, other);
    EXPECT_EQ (input().fileLabel.getText(), "other song.WAV");
    EXPECT_EQ (input().fileLabel.getTooltip(), other.getFullPathName());
    EXPECT_EQ (detectedBpm(), "--");

    dropText ("https://127.0.0.1/watch?v=a\r\nThe page's title\r\n");
    EXPECT_TRUE (input().urlToggle.getToggleState() && input().urlBox.isEnabled());
    EXPECT_EQ (input().urlBox.getText(), "https://127.0.0.1/watch?v=a");

    tempo().setAnalysisResult (112.0, 2);
    dropFiles ({ "https://127.0.0.1/another song" });
    EXPECT_EQ (input().urlBox.getText(), "https://127.0.0.1/another%20song");
    EXPECT_EQ (detectedBpm(), "--");

    dropText (juce::URL (song).toString (false));
    EXPECT_TRUE (input().localToggle.getToggleState());
    EXPECT_EQ (input().selectedFile, song);
    EXPECT_EQ (takeDialogs(), "");
}

TEST_F (DropControlTest, ExplainsWhyADropIsNotASong)
{
    const auto notes = folder.getChild ("notes.txt");
    notes.create();
    const auto file = song.getFullPathName();
    const auto expectWarning = [this] (const juce::String& text)
    { EXPECT_TRUE (takeDialogs().startsWith ("! Cannot use what was dropped: " + text)) << text; };

    dropFiles ({ file, file });
    expectWarning ("Only one song can be chosen at a time.\nDrop a single audio file.");
    dropFiles ({ folder.get().getFullPathName() });
    expectWarning ("This is a folder:\n");
    dropFiles ({ notes.getFullPathName() });
    expectWarning ("Kelvane does not open files of this type:\n");
    for (const auto& path : { folder.getChild ("gone.wav").getFullPathName(), juce::String ("sftp://127.0.0.1/a.wav") })
    {
        dropFiles ({ path });
        expectWarning ("This is not a file on this computer:\n" + path);
    }
    for (const auto* const text : { "a word", "http is a protocol", "ftp://127.0.0.1/a", "http://a\nhttp://b", "" })
    {
        dropText (text);
        expectWarning ("This is not one link.\nDrop a link");
    }

    EXPECT_TRUE (input().localToggle.getToggleState());
    EXPECT_EQ (input().urlBox.getText(), "");
    EXPECT_EQ (input().selectedFile, song);
}
