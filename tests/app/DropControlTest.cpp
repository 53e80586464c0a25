#include "WindowFixture.h"

using DropControlTest = WindowFixture;

TEST_F (DropControlTest, UsesADroppedFileOrLinkAsTheSong)
{
    const auto other = folder.getChild ("other song.WAV");
    song.copyFileTo (other);
    tempo().setAnalysisResult (112.0, 2);

    // Dropping the current song again keeps its analysis, even if the link was selected.
    turn (input().urlToggle, true);
    window->takeDroppedFiles ({ song.getFullPathName() });
    EXPECT_TRUE (input().localToggle.getToggleState() && input().chooseButton.isEnabled());
    EXPECT_EQ (detected(), "112.0 D");

    window->takeDroppedFiles ({ other.getFullPathName() });
    EXPECT_EQ (input().selectedFile, other);
    EXPECT_EQ (input().fileLabel.getText() + detected(), "other song.WAV-- --");
    EXPECT_EQ (input().fileLabel.getTooltip(), other.getFullPathName());

    window->takeDroppedText ("https://127.0.0.1/watch?v=a\r\nThe page's title\r\n");
    EXPECT_TRUE (input().urlToggle.getToggleState() && input().urlBox.isEnabled());
    EXPECT_EQ (input().urlBox.getText(), "https://127.0.0.1/watch?v=a");

    deliverMessages();
    tempo().setAnalysisResult (112.0, 2);
    window->takeDroppedFiles ({ "https://127.0.0.1/another song" });
    EXPECT_EQ (input().urlBox.getText(), "https://127.0.0.1/another%20song");
    deliverMessages();
    EXPECT_EQ (detected(), "-- --");

    window->takeDroppedText (juce::URL (song).toString (false));
    EXPECT_TRUE (input().localToggle.getToggleState() && input().selectedFile == song);
    EXPECT_EQ (takeDialogs(), "");
}

TEST_F (DropControlTest, ExplainsWhyADropIsNotASong)
{
    const auto path = [this] (const juce::String& name) { return folder.getChild (name).getFullPathName(); };
    const auto expectWarning = [this] (const juce::String& text)
    { EXPECT_TRUE (takeDialogs().startsWith ("! Cannot use what was dropped: " + text)) << text; };

    folder.getChild ("notes.txt").create();
    for (const auto& [paths, text] : std::initializer_list<std::pair<juce::StringArray, juce::String>> {
             { { path ("My Song.wav"), path ("My Song.wav") }, "Only one song can be chosen at a time.\nDrop a" },
             { { path ({}) }, "This is a folder:\n" + path ({}) + "\nDrop a" },
             { { path ("notes.txt") },
               "Kelvane does not open files of this type:\n" + path ("notes.txt") + "\nDrop a" },
             { { path ("gone.wav") },
               "This is not a file on this computer:\n" + path ("gone.wav") + "\nDrop an audio" },
             { { "sftp://127.0.0.1/a.wav" }, "This is not a file on this computer:\n" },
         })
    {
        window->takeDroppedFiles (paths);
        expectWarning (text);
    }
    for (const auto* const text : { "a word", "http is a protocol", "ftp://127.0.0.1/a", "http://a\nhttp://b", "" })
    {
        window->takeDroppedText (text);
        expectWarning ("This is not a link.\nDrop a single link");
    }
    EXPECT_TRUE (input().localToggle.getToggleState() && input().urlBox.isEmpty() && input().selectedFile == song);
}
