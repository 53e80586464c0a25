#include "ControllerFixture.h"

#include <sys/resource.h>
#include <unistd.h>

class AnalysisControlTest : public ControllerFixture
{
protected:
    juce::String detectedBpm() { return child<TempoPanel>().detectedBpmLabel.getText(); }

    static bool analysisIsRunning() { return numThreadsNamed ("KelvaneAnalysis") > 0; }

    /** With its thread, as a click means nothing before. */
    bool analysisEnds()
    {
        return eventually ([this] { return analyze().isEnabled() && ! analysisIsRunning(); });
    }

    const juce::String url { "HTTPS://127.0.0.1/a" };
    const juce::String slow {
        "Downloading YouTube audio for analysis (first run may take longer while uv sets up)..."
    };
    const juce::String quick { "Analyzing BPM and key..." };
};

TEST_F (AnalysisControlTest, RefusesWithoutASource)
{
    onMessageThread ([this] { child<InputPanel>().selectedFile = juce::File(); });
    clickAnalyze();
    useUrl ("  ");
    clickAnalyze();
    useUrl ("ftp://127.0.0.1");
    clickAnalyze();

    ASSERT_EQ (dialogs.size(), 3u);
    EXPECT_EQ (dialogs[0].text, "Choose an input audio file first.");
    EXPECT_EQ (dialogs[1].text, "Enter a valid YouTube URL first.");
    EXPECT_EQ (dialogs[2].text, "Enter a valid YouTube URL first.");
    for (const auto& dialog : dialogs)
    {
        EXPECT_EQ (dialog.title, "Cannot analyze");
        EXPECT_EQ (dialog.icon, juce::MessageBoxIconType::WarningIcon);
    }
    onMessageThread ([this] { EXPECT_EQ (status(), "Ready."); });
}

TEST_F (AnalysisControlTest, ShowsWhatItDetects)
{
    onMessageThread (
        [this]
        {
            click (analyze());
            EXPECT_EQ (status(), "Analyzing BPM and key (first run may take longer while uv sets up)...");
            EXPECT_FALSE (analyze().isEnabled());
        });
    ASSERT_TRUE (analysisEnds());
    onMessageThread (
        [this]
        {
            EXPECT_EQ (status(), "Analysis finished.");
            EXPECT_EQ (detectedBpm(), "112.0");
            EXPECT_EQ (child<TempoPanel>().detectedKeyLabel.getText(), "D");
        });
    EXPECT_EQ (uv.getArguments ("analyze.py")[2], song.getFullPathName());

    uv.setWorker ("analyze.py", "echo 'There is no sound.'; exit 1");
    clickAnalyze();
    ASSERT_TRUE (analysisEnds());
    ASSERT_EQ (dialogs.size(), 1u);
    EXPECT_EQ (dialogs[0].title, "Analysis failed");
    EXPECT_EQ (dialogs[0].text, "Analysis failed.\n\nThere is no sound.");
    onMessageThread (
        [this]
        {
            EXPECT_EQ (status(), "Analysis failed.");
            EXPECT_EQ (detectedBpm(), "112.0");
        });
}

TEST_F (AnalysisControlTest, DownloadsAUrlOnce)
{
    const auto analyzeAndExpect = [this] (const juce::String& expectedStatus, int expectedDownloads)
    {
        onMessageThread (
            [&]
            {
                click (analyze());
                EXPECT_EQ (status(), expectedStatus);
            });
        ASSERT_TRUE (analysisEnds());
        EXPECT_EQ (numDownloads(), expectedDownloads);
        EXPECT_EQ (numCacheFolders(), 1);
    };

    // A download is kept although its analysis fails.
    useUrl ("  " + url + "\n");
    uv.setWorker ("analyze.py", "exit 1");
    analyzeAndExpect (slow, 1);
    EXPECT_EQ (uv.getArguments ("yt2wav.py")[2], url);
    uv.setWorker ("analyze.py", StandInUv::detecting (112.04));
    analyzeAndExpect (quick, 1);

    // Neither the other source nor another file voids it, and a run takes it.
    onMessageThread (
        [this]
        {
            turn (child<InputPanel>().localToggle, true);
            child<InputPanel>().onFileChosen();
            EXPECT_EQ (detectedBpm(), "--");
            turn (child<InputPanel>().urlToggle, true);
        });
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (dialogs.back().title, "Pipeline complete");
    EXPECT_EQ (numDownloads(), 1);
    analyzeAndExpect (quick, 1);

    // Gone behind the program's back, it is downloaded again; by a run for itself alone.
    const auto cached = juce::File (uv.getArguments ("analyze.py")[2]);
    EXPECT_TRUE (cached.deleteFile());
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (numDownloads(), 2);
    analyzeAndExpect (slow, 3);

    // An edit voids it, and so what was detected.
    useUrl (url + "b");
    EXPECT_EQ (numCacheFolders(), 0);
    onMessageThread ([this] { EXPECT_EQ (detectedBpm(), "--"); });
    analyzeAndExpect (slow, 4);
}

TEST_F (AnalysisControlTest, AnotherSourceCancelsIt)
{
    holdWorker ("analyze.py", "", StandInUv::detecting (99));
    useUrl (url);
    clickAnalyze();
    ASSERT_TRUE (isHeld());
    EXPECT_EQ (numCacheFolders(), 1);

    useUrl (url + "b");
    onMessageThread (
        [this]
        {
            EXPECT_EQ (status(), "Ready.");
            EXPECT_TRUE (analyze().isEnabled());
        });
    EXPECT_EQ (numCacheFolders(), 0);

    // While the old thread is ending a click does nothing. No completion of its arrives.
    uv.setWorker ("analyze.py", StandInUv::detecting (77));
    ASSERT_TRUE (eventually (
        [this]
        {
            click (analyze());
            return ! analyze().isEnabled();
        }));
    ASSERT_TRUE (analysisEnds());
    onMessageThread ([this] { EXPECT_EQ (detectedBpm(), "77.0"); });
    EXPECT_TRUE (dialogs.empty());
}

TEST_F (AnalysisControlTest, AClickCountsBeforeTheNoticeOfAnEdit)
{
    clickAnalyze();
    ASSERT_TRUE (analysisEnds());
    holdWorker ("yt2wav.py", "", "cp song.wav \"$4/a.wav\"; echo \"WAV_PATH::$4/a.wav\"");
    onMessageThread (
        [this]
        {
            turn (child<InputPanel>().urlToggle, true);
            child<InputPanel>().urlBox.setText (url, true);
            click (analyze());
            EXPECT_EQ (detectedBpm(), "--");
        });
    useUrl (url + "\n");
    letGo();
    ASSERT_TRUE (analysisEnds());
    onMessageThread ([this] { EXPECT_EQ (status(), "Analysis finished."); });

    // The download has come, and is that of this link still.
    useUrl (" " + url);
    onMessageThread ([this] { EXPECT_EQ (detectedBpm(), "112.0"); });
    EXPECT_EQ (numCacheFolders(), 1);
}

TEST_F (AnalysisControlTest, ALateCompletionIsDropped)
{
    {
        // The message thread stands still until the thread is gone, and finds its completion afterwards.
        const juce::MessageManagerLock lock;
        click (analyze());
        for (auto waited = 0; waited < 60000 && (uv.getArguments ("analyze.py").isEmpty() || analysisIsRunning());
             waited += 10)
            juce::Thread::sleep (10);

        child<InputPanel>().selectedFile = uv.getFile ("song.wav");
        child<InputPanel>().onFileChosen();
        EXPECT_EQ (status(), "Ready.");
        holdWorker ("analyze.py", "", StandInUv::detecting (99));
        click (analyze());
    }

    deliverMessages();
    onMessageThread (
        [this]
        {
            EXPECT_FALSE (analyze().isEnabled());
            EXPECT_EQ (detectedBpm(), "--");
        });
    letGo();
    ASSERT_TRUE (analysisEnds());
    onMessageThread ([this] { EXPECT_EQ (detectedBpm(), "99.0"); });
}

TEST_F (AnalysisControlTest, AJobWhoseThreadFailsIsOver)
{
    {
        const NoMoreThreads noMoreThreads;
        clickAnalyze();
        clickExecute();
    }

    ASSERT_EQ (dialogs.size(), 2u);
    EXPECT_EQ (dialogs[0].title, "Analysis failed");
    EXPECT_EQ (dialogs[1].title, "Pipeline failed");
    for (const auto& dialog : dialogs)
        EXPECT_EQ (dialog.text, "Could not start a thread. Close other programs and try again.");
    onMessageThread ([this] { EXPECT_TRUE (analyze().isEnabled() && isIdle()); });

    // No exception of an analysis is caught, and this one comes where memory is limited. A sanitizer's own maps take
    // terabytes, and cannot be limited.
    const auto size = juce::File ("/proc/self/statm").loadFileAsString().getLargeIntValue() * sysconf (_SC_PAGESIZE);
    if (size > juce::int64 { 1 } << 40)
        return;

    uv.setWorker ("analyze.py", "head -c 300000000 /dev/zero");
    rlimit old {};
    getrlimit (RLIMIT_AS, &old);
    const rlimit low { static_cast<rlim_t> (size) + (100 << 20), old.rlim_max };
    setrlimit (RLIMIT_AS, &low);
    clickAnalyze();
    EXPECT_TRUE (analysisEnds());
    setrlimit (RLIMIT_AS, &old);
    EXPECT_EQ (dialogs.back().text, "Unexpected error: the job ended early.\nClose other programs and try again.");
}

TEST_F (AnalysisControlTest, GoesOnBesideARun)
{
    holdWorker ("analyze.py", "", StandInUv::detecting (99));
    clickAnalyze();
    ASSERT_TRUE (isHeld());

    onMessageThread ([this] { child<InputPanel>().selectedFile = juce::File(); });
    clickExecute();
    EXPECT_EQ (dialogs.back().title, "Cannot start pipeline");
    onMessageThread ([this] { child<InputPanel>().selectedFile = song; });
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (dialogs.back().title, "Pipeline complete");
    onMessageThread ([this] { EXPECT_FALSE (analyze().isEnabled()); });

    letGo();
    ASSERT_TRUE (analysisEnds());
    onMessageThread ([this] { EXPECT_EQ (detectedBpm(), "99.0"); });
}

TEST_F (AnalysisControlTest, AnEditTakesTheDownloadFromUnderARun)
{
    useUrl (url);
    clickAnalyze();
    ASSERT_TRUE (analysisEnds());

    holdWorker ("separate.py", "", "[ -f \"$3\" ] || { echo 'The song has gone.'; exit 1; }");
    clickExecute();
    ASSERT_TRUE (isHeld());
    useUrl (url + "b");
    letGo();
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (dialogs.back().text, "Stem separation failed.\n\nThe song has gone.");
}

TEST_F (AnalysisControlTest, ClosingTheWindowEndsItAndTakesTheDownloadAway)
{
    useUrl (url);
    holdWorker ("analyze.py", "", StandInUv::detecting (99));
    clickAnalyze();
    ASSERT_TRUE (isHeld());
    clickExecute();

    onMessageThread ([this] { window.reset(); });
    EXPECT_EQ (numCacheFolders(), 0);
    deliverMessages();
    EXPECT_TRUE (dialogs.empty());
}

TEST_F (AnalysisControlTest, AnEarlyCancelLeavesNoFolder)
{
    useUrl (url);

    for (auto round = 0; round < 10; ++round)
    {
        onMessageThread (
            [&]
            {
                if (analyze().isEnabled())
                    click (analyze());
                child<InputPanel>().urlBox.setText (url + juce::String (round));
                child<InputPanel>().reportUrlEdit();
            });
    }

    onMessageThread ([this] { window.reset(); });
    EXPECT_EQ (numCacheFolders(), 0);
}
