#include "ControllerFixture.h"

using RunControlTest = ControllerFixture;

TEST_F (RunControlTest, RunsWithTheSettingsOfThePanels)
{
    useUrl ("  https://127.0.0.1/a \n");
    turn (stems().bassToggle, false);
    turn (stems().vocalsToggle, false);
    turn (tempo().tempoPitchToggle, true);
    turn (tempo().keyToggle, true);
    turn (tempo().keyAutoToggle, true);
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
    EXPECT_EQ (config.url, "https://127.0.0.1/a");
    EXPECT_EQ (config.modelName, "htdemucs");
    EXPECT_EQ (config.stretchMode, StretchMode::TempoAndPitch);
    EXPECT_EQ (config.adjustMode, AdjustMode::Key);
    EXPECT_EQ (config.percent, 12.5);
    EXPECT_EQ (config.fromBpm, 120.0);
    EXPECT_EQ (config.toBpm, 90.5);
    EXPECT_EQ (config.fromKey, 11);
    EXPECT_EQ (config.toKey, 0);
    EXPECT_EQ (config.outputDir, folder.getChild ("out"));
    EXPECT_EQ (config.sampleRate, 48000);
    EXPECT_EQ (config.bitDepth, 16);

    turn (tempo().bpmToggle, true);
    turn (tempo().bpmAutoToggle, true);
    ASSERT_TRUE (window->buildConfig (config, error)) << error;
    EXPECT_EQ (config.adjustMode, AdjustMode::Bpm);
    EXPECT_TRUE (config.autoBpm);
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
        EXPECT_EQ (status(), "Ready.");
        EXPECT_TRUE (isIdle());
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
    uv.setWorker ("separate.py", "echo 'There is no disk.'; exit 1");
    click (execute());
    EXPECT_EQ (status(), "Starting...");
    EXPECT_EQ (execute().getButtonText(), "Cancel");
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (status(), "Failed.");
    EXPECT_EQ (takeDialogs(), "! Pipeline failed: Stem separation failed.\n\nThere is no disk.");

    holdWorker ("separate.py");
    click (execute());
    ASSERT_TRUE (isHeld ("separate.py"));
    click (execute());
    EXPECT_EQ (status(), "Cancelling...");
    EXPECT_EQ (execute().getButtonText(), "Cancel");
    EXPECT_FALSE (execute().isEnabled());
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (status(), "Cancelled.");
    EXPECT_EQ (takeDialogs(), "");

    wantFullSongAlone();
    click (execute());
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (status(), "Done.");
    EXPECT_EQ (takeDialogs(), "i Pipeline complete: Wrote 1 file(s) to:\n"
                                  + folder.getChild ("out/My Song - Stems").getFullPathName());
}

TEST_F (RunControlTest, SurvivesAStartBeforeTheLastRunReportsItsEnd)
{
    wantFullSongAlone();
    click (execute());
    waitForThread ("Kelvane", folder.getChild ("out/My Song - Stems/My Song - full mix.wav"));
    click (execute());
    EXPECT_EQ (status(), "Starting...");

    ASSERT_TRUE (eventually ([this] { return dialogs.size() == 2 && isIdle(); }));
    EXPECT_EQ (status(), "Done.");
}

TEST_F (RunControlTest, EndsAllJobsWhenTheWindowCloses)
{
    useUrl ("https://127.0.0.1/a");
    for (const auto* const worker : { "analyze.py", "separate.py" })
    {
        holdWorker (worker);
        click (juce::String (worker) == "analyze.py" ? analyze() : execute());
        ASSERT_TRUE (isHeld (worker));
    }
    EXPECT_EQ (numCacheFolders(), 1);

    window.reset();
    for (const auto* const worker : { "analyze.py", "separate.py" })
    {
        const auto pid = uv.getFile (juce::String (worker) + ".pid").loadFileAsString().trim();
        EXPECT_FALSE (juce::File ("/proc").getChildFile (pid).getChildFile ("exe").exists()) << worker;
    }
    EXPECT_EQ (numCacheFolders(), 0);
    deliverMessages();
    EXPECT_EQ (takeDialogs(), "");
}
