#include "WindowFixture.h"

using RunControlTest = WindowFixture;

TEST_F (RunControlTest, RunsWithTheSettingsOfThePanels)
{
    useUrl ("  https://127.0.0.1/a \n");
    for (auto* const off : { &stems().bassToggle, &stems().vocalsToggle })
        turn (*off, false);
    for (auto* const on : { &tempo().tempoPitchToggle, &tempo().keyToggle, &tempo().keyAutoToggle })
        turn (*on, true);
    tempo().percentSlider.setValue (12.5);
    tempo().bpmFromBox.setText ("120");
    tempo().bpmToBox.setText ("90.5");
    tempo().keyFromBox.setSelectedId (12);
    tempo().keyToBox.setSelectedId (0);
    output().rateBox.setSelectedId (3);
    output().depthBox.setSelectedId (1);

    PipelineConfig config;
    juce::String error;
    ASSERT_TRUE (window->buildConfig (config, error)) << error;
    EXPECT_TRUE (config.useUrl && config.autoKey && ! config.autoBpm && ! config.fullSong);
    EXPECT_TRUE (config.stems[0] && ! config.stems[1] && ! config.stems[2] && config.stems[3]);
    EXPECT_EQ (config.url + " " + config.modelName, "https://127.0.0.1/a htdemucs");
    EXPECT_TRUE (config.stretchMode == StretchMode::TempoAndPitch && config.adjustMode == AdjustMode::Key);
    EXPECT_EQ (std::tuple (config.percent, config.fromBpm, config.toBpm), std::tuple (12.5, 120.0, 90.5));
    EXPECT_EQ (std::tuple (config.fromKey, config.toKey), std::tuple (11, 0));
    EXPECT_EQ (config.outputDir, folder.getChild ("out"));
    EXPECT_EQ (std::tuple (config.sampleRate, config.bitDepth), std::tuple (48000, 16));

    turn (tempo().bpmToggle, true);
    turn (tempo().bpmAutoToggle, true);
    EXPECT_TRUE (window->buildConfig (config, error) && config.adjustMode == AdjustMode::Bpm && config.autoBpm);
}

TEST_F (RunControlTest, ReportsTheFirstInvalidPanel)
{
    input().selectedFile = folder.getChild ("missing.wav");
    wantFullSongAlone();
    turn (stems().fullSongToggle, false);
    turn (tempo().bpmToggle, true);
    output().outputFolder = juce::File();

    const auto expectRefusal = [this] (const juce::String& text)
    {
        click (execute());
        EXPECT_EQ (takeDialogs(), "! Cannot start pipeline: " + text);
        EXPECT_TRUE (isIdle() && status() == "Ready.");
    };

    expectRefusal ("Choose an input audio file, or switch to a YouTube URL.");
    useUrl (" \n ");
    expectRefusal ("Enter a YouTube URL, or switch to a local audio file.");
    useUrl (" ftp://127.0.0.1/http ");
    expectRefusal ("That doesn't look like a valid URL:\nftp://127.0.0.1/http");
    useUrl ("HTTPfoo");
    expectRefusal ("Select at least one stem (or 'Full song').");
    turn (stems().otherToggle, true);
    expectRefusal ("Enter a target (to) BPM.");
    turn (tempo().percentToggle, true);
    expectRefusal ("Choose a valid output folder.");
}

TEST_F (RunControlTest, ShowsTheOutcomeOfEachRun)
{
    setWorker ("separate.py", "echo 'There is no disk.'; exit 1");
    run (execute());
    EXPECT_EQ (status(), "Failed.");
    EXPECT_EQ (takeDialogs(), "! Pipeline failed: Stem separation failed.\n\nThere is no disk.");

    holdWorker ("separate.py");
    click (execute());
    EXPECT_EQ (status(), "Starting...");
    ASSERT_TRUE (isHeld ("separate.py"));
    click (execute());
    EXPECT_EQ (status(), "Cancelling...");
    EXPECT_TRUE (execute().getButtonText() == "Cancel" && ! execute().isEnabled());
    ASSERT_TRUE (eventually ([this] { return isIdle(); }));
    EXPECT_EQ (status(), "Cancelled.");
    EXPECT_EQ (takeDialogs(), "");

    wantFullSongAlone();
    run (execute());
    EXPECT_EQ (status(), "Done.");
    EXPECT_EQ (takeDialogs(), "i Pipeline complete: Wrote 1 file(s) to:\n"
                                  + folder.getChild ("out/My Song - Stems").getFullPathName());
}

TEST_F (RunControlTest, SurvivesAStartBeforeTheLastRunReportsItsEnd)
{
    wantFullSongAlone();
    click (execute());
    waitForThread (folder.getChild ("out/My Song - Stems/My Song - full mix.wav"));
    click (execute());
    EXPECT_EQ (status(), "Starting...");

    ASSERT_TRUE (eventually ([this] { return dialogs.size() == 2 && isIdle(); }));
    EXPECT_EQ (status(), "Done.");
}

TEST_F (RunControlTest, EndsAllJobsWhenTheWindowCloses)
{
    useUrl ("https://127.0.0.1/a");
    for (auto* const worker : { "analyze.py", "separate.py" })
        holdWorker (worker);
    click (analyze());
    ASSERT_TRUE (isHeld ("analyze.py"));
    click (execute());
    ASSERT_TRUE (isHeld ("separate.py"));
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 1);

    window.reset();
    EXPECT_FALSE (isRunning ("analyze.py") || isRunning ("separate.py"));
    EXPECT_EQ (numTemporaryFolders ("cache-*"), 0);
    deliverMessages();
    EXPECT_EQ (takeDialogs(), "");
}
