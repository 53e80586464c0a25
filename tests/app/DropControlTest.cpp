#include "ControllerFixture.h"

class DropControlTest : public ControllerFixture
{
protected:
    InputPanel& panel() { return child<InputPanel>(); }
    juce::String detectedBpm() { return child<TempoPanel>().detectedBpmLabel.getText(); }

    /** Waits for the thread as well, since a click before its end does nothing. */
    bool isDetected()
    {
        return eventually ([this] { return detectedBpm() == "112.0" && numThreadsNamed ("KelvaneAnalysis") == 0; });
    }

    void dropFiles (const juce::StringArray& paths)
    {
        onMessageThread ([&] { window->takeDroppedFiles (paths); });
        deliverMessages();
    }

    void dropText (const juce::String& text)
    {
        onMessageThread ([&] { window->takeDroppedText (text); });
        deliverMessages();
    }

    const juce::File other = folder.getChild ("other song.WAV");
};

TEST_F (DropControlTest, MakesAFileOrALinkTheSong)
{
    song.copyFileTo (other);
    clickAnalyze();
    ASSERT_TRUE (isDetected());

    // The same song once more voids nothing, and neither does the other source.
    onMessageThread ([this] { turn (panel().urlToggle, true); });
    dropFiles ({ song.getFullPathName() });
    EXPECT_TRUE (panel().localToggle.getToggleState());
    EXPECT_TRUE (panel().chooseButton.isEnabled());
    EXPECT_EQ (detectedBpm(), "112.0");

    dropFiles ({ other.getFullPathName() });
    EXPECT_EQ (panel().selectedFile, other);
    EXPECT_EQ (panel().fileLabel.getText(), "other song.WAV");
    EXPECT_EQ (detectedBpm(), "--");

    const juce::String link ("https://127.0.0.1/watch?v=a");
    dropText (link + "\r\nThe page's title\r\n");
    EXPECT_TRUE (panel().urlToggle.getToggleState());
    EXPECT_TRUE (panel().urlBox.isEnabled());
    EXPECT_EQ (panel().urlBox.getText(), link);
    clickAnalyze();
    ASSERT_TRUE (isDetected());
    dropFiles ({ "https://127.0.0.1/another song" });
    EXPECT_EQ (panel().urlBox.getText(), "https://127.0.0.1/another%20song");
    EXPECT_EQ (detectedBpm(), "--");
    EXPECT_EQ (numCacheFolders(), 0);

    dropText (juce::URL (song).toString (false));
    EXPECT_TRUE (panel().localToggle.getToggleState());
    EXPECT_EQ (panel().selectedFile, song);
    EXPECT_TRUE (dialogs.empty());
}

TEST_F (DropControlTest, RefusesAnythingElse)
{
    const auto notes = folder.getChild ("notes.txt");
    notes.create();
    onMessageThread ([this] { turn (panel().urlToggle, true); });

    dropFiles ({ song.getFullPathName(), song.getFullPathName() });
    for (const auto& path :
         { folder.getChild ("").getFullPathName(), notes.getFullPathName(),
           folder.getChild ("gone.wav").getFullPathName(), juce::String ("sftp://127.0.0.1/song.wav") })
        dropFiles ({ path });
    for (const auto* const text : { "a word", "http is a protocol", "ftp://127.0.0.1/a", "http://a\nhttp://b", "" })
        dropText (text);

    ASSERT_EQ (dialogs.size(), 10u);
    for (const auto& dialog : dialogs)
    {
        EXPECT_EQ (dialog.icon, juce::MessageBoxIconType::WarningIcon);
        EXPECT_TRUE (dialog.text.contains ("\nDrop a")) << dialog.text;
    }
    EXPECT_TRUE (panel().urlToggle.getToggleState());
    EXPECT_EQ (panel().urlBox.getText(), "");
    EXPECT_EQ (panel().selectedFile, song);
}
