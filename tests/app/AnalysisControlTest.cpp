#include "ControllerFixture.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

class AnalysisControlTest : public ControllerFixture
{
protected:
    void expectAnalysis (const juce::String& statusDuringIt, int numDownloadsAfterIt)
    {
        click (analyze());
        EXPECT_EQ (status(), statusDuringIt);
        EXPECT_FALSE (analyze().isEnabled());
        ASSERT_TRUE (analysisEnds());
        EXPECT_EQ (numDownloads(), numDownloadsAfterIt);
    }

    juce::int64 numDownloads() const { return uv.getFile ("downloads").getSize(); } // one byte each

    const juce::String url { "HTTPS://127.0.0.1/a" };
    const juce::String downloading {
        "Downloading YouTube audio for analysis (first run may take longer while uv sets up)..."
    };
    const juce::String analyzing { "Analyzing BPM and key..." };
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
    expectAnalysis ("Analyzing BPM and key (first run may take longer while uv sets up)...", 0);
    EXPECT_EQ (status(), "Analysis finished.");
    EXPECT_EQ (detectedBpm(), "112.0");
    EXPECT_EQ (tempo().detectedKeyLabel.getText(), "D");
    EXPECT_EQ (uv.getArguments ("analyze.py")[2], song.getFullPathName());

    uv.setWorker ("analyze.py", "echo 'There is no sound.'; exit 1");
    click (analyze());
    ASSERT_TRUE (analysisEnds());
    EXPECT_EQ (takeDialogs(), "! Analysis failed: Analysis failed.\n\nThere is no sound.");
    EXPECT_EQ (status(), "Analysis failed.");
    EXPECT_EQ (detectedBpm(), "112.0");
}

TEST_F (AnalysisControlTest, DownloadsALinkOnlyOnce)
{
    useUrl ("  " + url + "\n");
    uv.setWorker ("analyze.py", "exit 1");
    expectAnalysis (downloading, 1);
    EXPECT_EQ (uv.getArguments ("yt2wav.py")[2], url);
    uv.setWorker ("analyze.py", StandInUv::detecting (112.04));
    expectAnalysis (analyzing, 1);
    takeDialogs();

    // The download survives a change of the file, and a run uses it.
    turn (input().localToggle, true);
    input().onFileChosen();
    EXPECT_EQ (detectedBpm(), "--");
    turn (input().urlToggle, true);
    click (execute());
    ASSERT_TRUE (becomesIdle());
    EXPECT_TRUE (takeDialogs().startsWith ("i Pipeline complete"));
    EXPECT_EQ (numDownloads(), 1);
    expectAnalysis (analyzing, 1);

    // If its file is missing, a run downloads another one for itself alone.
    EXPECT_TRUE (juce::File (uv.getArguments ("analyze.py")[2]).deleteFile());
    click (execute());
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (numDownloads(), 2);
    expectAnalysis (downloading, 3);
    EXPECT_EQ (numCacheFolders(), 1);

    useUrl (url + "b");
    EXPECT_EQ (numCacheFolders(), 0);
    EXPECT_EQ (detectedBpm(), "--");
    expectAnalysis (downloading, 4);
}

TEST_F (AnalysisControlTest, CancelsWhenTheLinkIsEdited)
{
    holdWorker ("analyze.py", StandInUv::detecting (99));
    useUrl (url);
    click (analyze());
    ASSERT_TRUE (isHeld ("analyze.py"));

    useUrl (url + "b");
    EXPECT_EQ (status(), "Ready.");
    EXPECT_TRUE (analyze().isEnabled());
    EXPECT_EQ (numCacheFolders(), 0);

    // A click has no effect until the old thread has ended.
    uv.setWorker ("analyze.py", StandInUv::detecting (77));
    ASSERT_TRUE (eventually (
        [this]
        {
            click (analyze());
            return ! analyze().isEnabled();
        }));
    ASSERT_TRUE (analysisEnds());
    EXPECT_EQ (detectedBpm(), "77.0");
    EXPECT_EQ (takeDialogs(), "");
}

TEST_F (AnalysisControlTest, AnalyzesTheEditedLinkBeforeTheEditIsReported)
{
    expectAnalysis ("Analyzing BPM and key (first run may take longer while uv sets up)...", 0);
    holdWorker ("analyze.py", StandInUv::detecting (99));
    turn (input().urlToggle, true);
    input().urlBox.setText (url, true);
    click (analyze());
    EXPECT_EQ (detectedBpm(), "--");

    // Spaces around the link change nothing, during the analysis or after it.
    useUrl (url + "\n");
    letGo();
    ASSERT_TRUE (analysisEnds());
    useUrl (" " + url);
    EXPECT_EQ (detectedBpm(), "99.0");
    EXPECT_EQ (numCacheFolders(), 1);
}

TEST_F (AnalysisControlTest, IgnoresAResultForThePreviousSong)
{
    click (analyze());
    waitForThread ("KelvaneAnalysis", uv.getFile ("analyze.py.args"));
    input().selectedFile = uv.getFile ("song.wav");
    input().onFileChosen();
    EXPECT_EQ (status(), "Ready.");
    holdWorker ("analyze.py", StandInUv::detecting (99));
    click (analyze());

    deliverMessages();
    EXPECT_FALSE (analyze().isEnabled());
    EXPECT_EQ (detectedBpm(), "--");
    letGo();
    ASSERT_TRUE (analysisEnds());
    EXPECT_EQ (detectedBpm(), "99.0");
}

TEST_F (AnalysisControlTest, ReportsAThreadThatCannotStart)
{
    pthread_attr_t usual {};
    pthread_getattr_default_np (&usual);
    auto tooLarge = usual;
    pthread_attr_setstacksize (&tooLarge, size_t { 1 } << 60);
    ASSERT_EQ (pthread_setattr_default_np (&tooLarge), 0);
    click (analyze());
    click (execute());
    pthread_setattr_default_np (&usual);
    pthread_attr_destroy (&usual);

    const juce::String text ("Could not start a thread. Close other programs and try again.");
    EXPECT_EQ (takeDialogs(), "! Analysis failed: " + text + "|! Pipeline failed: " + text);
    EXPECT_TRUE (analyze().isEnabled() && isIdle());
}

TEST_F (AnalysisControlTest, ReportsAThreadThatRunsOutOfMemory)
{
    const auto size = juce::File ("/proc/self/statm").loadFileAsString().getLargeIntValue() * sysconf (_SC_PAGESIZE);
    if (size > juce::int64 { 1 } << 40)
        GTEST_SKIP() << "A sanitizer maps terabytes.";

    uv.setWorker ("analyze.py", "head -c 300000000 /dev/zero");
    rlimit usual {};
    getrlimit (RLIMIT_AS, &usual);
    const rlimit low { static_cast<rlim_t> (size) + (100 << 20), usual.rlim_max };
    setrlimit (RLIMIT_AS, &low);
    click (analyze());
    EXPECT_TRUE (analysisEnds());
    setrlimit (RLIMIT_AS, &usual);
    EXPECT_TRUE (takeDialogs().contains ("Unexpected error: the job ended early."));
}

TEST_F (AnalysisControlTest, DeletesTheFolderOfADownloadCancelledAtOnce)
{
    useUrl (url);

    for (auto round = 0; round < 10; ++round)
    {
        if (analyze().isEnabled())
            click (analyze());
        input().urlBox.setText (url + juce::String (round));
        input().reportUrlEdit();
        deliverMessages();
    }

    window.reset();
    EXPECT_EQ (numCacheFolders(), 0);
}
