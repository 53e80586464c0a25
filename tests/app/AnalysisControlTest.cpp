#include "WindowFixture.h"

class AnalysisControlTest : public WindowFixture
{
protected:
    void expectAnalysis (const juce::String& statusDuringIt, int numDownloadsAfterIt)
    {
        click (analyze());
        EXPECT_EQ (status(), statusDuringIt);
        EXPECT_FALSE (analyze().isEnabled());
        ASSERT_TRUE (jobsEnd());
        EXPECT_EQ (numStarts ("yt2wav.py"), numDownloadsAfterIt);
    }

    const juce::String url { "HTTPS://127.0.0.1/a" };
    const juce::String downloading {
        "Downloading YouTube audio for analysis (first run may take longer while uv sets up)..."
    };
    const juce::String analyzing { "Analyzing BPM and key..." };
    const juce::String analyzingFirst { "Analyzing BPM and key (first run may take longer while uv sets up)..." };
};

TEST_F (AnalysisControlTest, RefusesToAnalyzeWithoutASong)
{
    input().selectedFile = juce::File();
    click (analyze());
    EXPECT_EQ (takeDialogs(), "! Cannot analyze: Choose an input audio file first.");

    useUrl ("ftp://127.0.0.1");
    click (analyze());
    EXPECT_EQ (takeDialogs(), "! Cannot analyze: Enter a valid YouTube URL first.");
    EXPECT_EQ (status(), "Ready.");
}

TEST_F (AnalysisControlTest, ShowsTheDetectedTempoAndKey)
{
    juce::FileOutputStream open (folder.getChild ("open elsewhere"));
    setWorker ("analyze.py", file ("analyze.py.sh").loadFileAsString() + "ls -l /proc/$$/fd >fds");
    expectAnalysis (analyzingFirst, 0);
    EXPECT_EQ (status(), "Analysis finished.");
    EXPECT_EQ (detected(), "112.0 D");
    EXPECT_TRUE (arguments ("analyze.py").endsWith ("/analyze.py|" + song.getFullPathName() + "|--bpm|--key"));

    const auto inherited = file ("fds").loadFileAsString();
    EXPECT_TRUE (inherited.contains ("0 -> ") && ! inherited.contains ("open elsewhere")) << inherited;
}

TEST_F (AnalysisControlTest, QuotesAWorkerThatFails)
{
    const juce::String downloadFailed ("YouTube download failed. Check the URL and your connection.\n\n");

    useUrl (url);
    tempo().setAnalysisResult (90.0, 1);
    for (const auto& [worker, body, expected] : std::vector<std::tuple<juce::String, juce::String, juce::String>> {
             { "yt2wav.py", "echo why; exit 1", downloadFailed + "why" },
             { "yt2wav.py", "echo WAV_PATH::/nowhere.wav", downloadFailed + "WAV_PATH::/nowhere.wav" },
             { "analyze.py", "printf 'Looking\\n%8192s\\nIt is silent.\\n'; exit 1",
               "Analysis failed.\n\nLooking\nIt is silent." },
             { "analyze.py", "echo RESULT::{}; exec >&- 2>&-; sleep 0.1; exit 3", "Analysis failed.\n\nRESULT::{}" },
         })
    {
        const auto original = file (worker + ".sh").loadFileAsString();
        setWorker (worker, body);
        run (analyze());
        EXPECT_EQ (takeDialogs(), "! Analysis failed: " + expected);
        EXPECT_EQ (status() + detected(), "Analysis failed.90.0 C#");
        setWorker (worker, original);
    }
}

TEST_F (AnalysisControlTest, DownloadsALinkOnlyOnce)
{
    useUrl ("  " + url + "\n");
    setWorker ("analyze.py", "exit 1");
    expectAnalysis (downloading, 1);
    EXPECT_TRUE (arguments ("yt2wav.py").contains ("/yt2wav.py|" + url + "|"));
    setDetection (112.04);
    expectAnalysis (analyzing, 1);
    takeDialogs();

    // Choosing a file does not discard the download, and a run of the link uses it.
    turn (input().localToggle, true);
    input().onFileChosen();
    EXPECT_EQ (detected(), "-- --");
    turn (input().urlToggle, true);
    run (execute());
    EXPECT_TRUE (takeDialogs().startsWith ("i Pipeline complete"));
    expectAnalysis (analyzing, 1);

    // If the downloaded file is missing, a run downloads the song again, but does not keep the file for an analysis.
    EXPECT_TRUE (juce::File (arguments ("analyze.py")
                                 .fromFirstOccurrenceOf ("py|", false, false)
                                 .upToFirstOccurrenceOf ("|", false, false))
                     .deleteFile());
    run (execute());
    EXPECT_EQ (numStarts ("yt2wav.py"), 2);
    expectAnalysis (downloading, 3);
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 1);

    useUrl (url + "b");
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 0);
    EXPECT_EQ (detected(), "-- --");
    expectAnalysis (downloading, 4);
}

TEST_F (AnalysisControlTest, CancelsWhenTheLinkIsEdited)
{
    const auto downloads = file ("yt2wav.py.sh").loadFileAsString();
    holdWorker ("yt2wav.py");
    useUrl (url);
    click (analyze());
    ASSERT_TRUE (isHeld ("yt2wav.py"));

    useUrl (url + "b");
    EXPECT_EQ (status(), "Ready.");
    EXPECT_TRUE (analyze().isEnabled());
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 0);

    // A click has no effect until the cancelled thread has ended.
    setWorker ("yt2wav.py", downloads);
    setDetection (77);
    ASSERT_TRUE (eventually (
        [this]
        {
            click (analyze());
            return ! analyze().isEnabled();
        }));
    EXPECT_FALSE (isRunning ("yt2wav.py"));
    ASSERT_TRUE (jobsEnd());
    EXPECT_EQ (detected() + takeDialogs(), "77.0 D");
}

TEST_F (AnalysisControlTest, AnalyzesTheEditedLinkBeforeTheEditIsReported)
{
    expectAnalysis (analyzingFirst, 0);
    setDetection (99);
    holdWorker ("analyze.py");
    turn (input().urlToggle, true);
    input().urlBox.setText (url, true);
    click (analyze());
    EXPECT_EQ (detected(), "-- --");

    // White space around the link changes nothing, during the analysis or after it.
    useUrl (url + "\n");
    letGo();
    ASSERT_TRUE (jobsEnd());
    useUrl (" " + url);
    EXPECT_EQ (detected(), "99.0 D");
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 1);
}

TEST_F (AnalysisControlTest, IgnoresAResultForThePreviousSong)
{
    click (analyze());
    waitForThread (file ("analyze.py.args"));
    input().selectedFile = file ("uv");
    input().onFileChosen();
    EXPECT_EQ (status(), "Ready.");
    setDetection (99);
    holdWorker ("analyze.py");
    click (analyze());

    deliverMessages();
    EXPECT_FALSE (analyze().isEnabled());
    EXPECT_EQ (detected(), "-- --");
    letGo();
    ASSERT_TRUE (jobsEnd());
    EXPECT_EQ (detected(), "99.0 D");
}

TEST_F (AnalysisControlTest, DeletesTheFolderOfADownloadCancelledImmediately)
{
    for (auto round = 0; round < 10; ++round)
    {
        useUrl (url + juce::String (round));
        if (analyze().isEnabled())
            click (analyze());
    }

    window.reset();
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 0);
}
