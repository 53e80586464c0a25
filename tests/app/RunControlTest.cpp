#include "ControllerFixture.h"
#include "support/WavHeader.h"

#include <cmath>

struct RunControlTest : ControllerFixture
{
};

TEST_F (RunControlTest, RefusesInTheOrderOfThePanels)
{
    // Everything is wrong at first, and mended one by one.
    auto& source = child<InputPanel>();
    auto& tempo = child<TempoPanel>();
    auto& output = child<OutputPanel>();
    wantStems (false, false, false, false);
    onMessageThread (
        [&]
        {
            source.selectedFile = folder.getChild ("missing.wav");
            turn (tempo.bpmToggle, true);
            turn (tempo.bpmAutoToggle, true);
            output.outputFolder = juce::File();
        });

    const auto below = song.getChildFile ("below");
    const std::vector<std::pair<std::function<void()>, juce::String>> steps {
        { [] {}, "Choose an input audio file, or switch to a YouTube URL." },
        { [&] { turn (source.urlToggle, true); }, "Enter a YouTube URL, or switch to a local audio file." },
        { [&] { source.urlBox.setText (" \n "); }, "Enter a YouTube URL, or switch to a local audio file." },
        { [&] { source.urlBox.setText (" ftp://127.0.0.1/http "); },
          "That doesn't look like a valid URL:\nftp://127.0.0.1/http" },
        { [&] { source.urlBox.setText ("HTTPfoo"); }, "Select at least one stem (or 'Full song')." },
        { [&] { turn (child<StemPanel>().fullSongToggle, true); }, "Enter a target (to) BPM." },
        { [&]
          {
              turn (tempo.bpmAutoToggle, false);
              tempo.bpmToBox.setText ("24.9");
          },
          "Enter a source (from) BPM, or enable Auto to detect it." },
        { [&] { tempo.bpmFromBox.setText ("100"); }, "The BPM ratio is out of range (limited to 0.25x - 4x)." },
        { [&] { tempo.bpmToBox.setText ("400.1"); }, "The BPM ratio is out of range (limited to 0.25x - 4x)." },
        { [&] { tempo.bpmToBox.setText ("400"); }, "Choose a valid output folder." },
        { [&] { output.outputFolder = song; }, "Choose a valid output folder." },
        { [&]
          {
              // With a percentage nobody looks at the tempos.
              tempo.bpmToBox.setText ("..");
              turn (tempo.percentToggle, true);
              output.outputFolder = below;
          },
          "Could not create the output folder:\n" + below.getFullPathName() },
    };

    for (const auto& [change, text] : steps)
    {
        onMessageThread (change);
        clickExecute();
        ASSERT_FALSE (dialogs.empty());
        EXPECT_EQ (dialogs.back().title, "Cannot start pipeline");
        EXPECT_EQ (dialogs.back().icon, juce::MessageBoxIconType::WarningIcon);
        EXPECT_EQ (dialogs.back().text, text);
        onMessageThread (
            [&]
            {
                EXPECT_EQ (status(), "Ready.");
                EXPECT_TRUE (isIdle());
            });
    }

    EXPECT_EQ (dialogs.size(), steps.size());
}

TEST_F (RunControlTest, TakesPercentageAndKeyAsTheyStand)
{
    wantFullSongAlone();
    auto& tempo = child<TempoPanel>();
    onMessageThread (
        [&]
        {
            turn (tempo.tempoPitchToggle, true);
            tempo.percentSlider.setValue (100.0);
        });
    const auto output = folder.getChild ("out/My Song - Stems/My Song - full mix.wav");

    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_NEAR (static_cast<double> (WavHeader (output).numFrames), 10000.0, 1.0);

    onMessageThread (
        [&]
        {
            turn (tempo.keyToggle, true);
            tempo.keyFromBox.setSelectedId (3); // D
            tempo.keyToBox.setSelectedId (7);   // F#
        });
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_NEAR (static_cast<double> (WavHeader (output).numFrames), 20000.0 / std::pow (2.0, 4 / 12.0), 1.0);
}

TEST_F (RunControlTest, RunsWhatThePanelsSay)
{
    useUrl ("  https://127.0.0.1/a  ");
    wantStems (true, false, true, true);
    onMessageThread (
        [&]
        {
            auto& panel = child<TempoPanel>();
            turn (panel.keyToggle, true);
            turn (panel.keyAutoToggle, true);
            turn (panel.tempoPitchToggle, true);
            panel.keyToBox.setSelectedId (5, juce::dontSendNotification); // D, the detected key, to E
            dynamic_cast<juce::ComboBox&> (*child<OutputPanel>().getChildComponent (4)).setSelectedId (3);
            dynamic_cast<juce::ComboBox&> (*child<OutputPanel>().getChildComponent (6)).setSelectedId (1);

            click (execute());
            EXPECT_EQ (status(), "Starting...");
            EXPECT_EQ (execute().getButtonText(), "Cancel");
        });

    ASSERT_TRUE (becomesIdle());
    const auto outDir = folder.getChild ("out/A Title - Stems");
    onMessageThread ([&] { EXPECT_EQ (status(), "Done."); });
    ASSERT_EQ (dialogs.size(), 1u);
    EXPECT_EQ (dialogs[0].icon, juce::MessageBoxIconType::InfoIcon);
    EXPECT_EQ (dialogs[0].title, "Pipeline complete");
    EXPECT_EQ (dialogs[0].text, "Wrote 3 file(s) to:\n" + outDir.getFullPathName());

    EXPECT_EQ (uv.getArguments ("yt2wav.py")[2], "https://127.0.0.1/a");
    EXPECT_EQ (uv.getArguments ("analyze.py")[3], "--key");
    EXPECT_EQ (uv.getArguments ("separate.py").joinIntoString (" ").fromFirstOccurrenceOf ("--model", true, false),
               "--model htdemucs --stems drums,vocals,other");

    const WavHeader header (outDir.getChildFile ("A Title - other.wav"));
    ASSERT_TRUE (header.isValid);
    EXPECT_EQ (header.sampleRate, 48000u);
    EXPECT_EQ (header.bitsPerSample, 16u);
    const auto seconds = 20000 / 44100.0 / std::pow (2.0, 2 / 12.0);
    EXPECT_NEAR (static_cast<double> (header.numFrames), seconds * 48000.0, 2.0);
}

TEST_F (RunControlTest, AFailureIsToldAndTheNextRunStartsAfresh)
{
    uv.setWorker ("separate.py", "echo 'There is no disk.'; exit 1");
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    onMessageThread ([&] { EXPECT_EQ (status(), "Failed."); });
    ASSERT_EQ (dialogs.size(), 1u);
    EXPECT_EQ (dialogs[0].icon, juce::MessageBoxIconType::WarningIcon);
    EXPECT_EQ (dialogs[0].title, "Pipeline failed");
    EXPECT_EQ (dialogs[0].text, "Stem separation failed.\n\nThere is no disk.");

    wantFullSongAlone();
    clickExecute();
    ASSERT_TRUE (becomesIdle());
    EXPECT_EQ (dialogs.back().title, "Pipeline complete");
}

TEST_F (RunControlTest, CancelsAtEveryMoment)
{
    // Stems that take a while to render.
    juce::String error;
    audiofile::writeWav (uv.getFile ("long.wav"), signals::noise (2, 44100 * 20), 44100.0, 16, error);
    useUrl ("https://127.0.0.1/a");
    onMessageThread (
        [&]
        {
            turn (child<TempoPanel>().bpmToggle, true);
            turn (child<TempoPanel>().bpmAutoToggle, true);
            child<TempoPanel>().bpmToBox.setText ("140");
        });

    const auto cancel = [this]
    {
        click (execute());
        EXPECT_EQ (status(), "Cancelling...");
        EXPECT_EQ (execute().getButtonText(), "Cancel");
        EXPECT_FALSE (execute().isEnabled());
    };

    const auto expectCancelled = [this]
    {
        ASSERT_TRUE (becomesIdle());
        onMessageThread ([this] { EXPECT_EQ (status(), "Cancelled."); });
        EXPECT_TRUE (dialogs.empty());
    };

    onMessageThread (
        [&]
        {
            click (execute());
            cancel();
        });
    expectCancelled();

    for (const auto* const moment : { "Downloading... 12%", "Detecting source BPM...", "Separating stems... 40%",
                                      "Processing drums... (detected 112.0 BPM)" })
    {
        SCOPED_TRACE (moment);
        const juce::String text (moment);
        const auto hold = [&] (const char* part)
        { return juce::String (text.contains (part) ? "while [ ! -f go ]; do sleep 0.02; done\n" : ""); };

        uv.setWorker ("yt2wav.py", "mkdir -p \"$4\"; cp song.wav \"$4/A.wav\"; printf '[download] 12%%\\n%8192s\\n'\n"
                                       + hold ("Downloading") + "echo \"WAV_PATH::$4/A.wav\"");
        uv.setWorker ("analyze.py", hold ("Detecting") + StandInUv::detecting (112.04));
        uv.setWorker ("separate.py", "for stem in drums bass vocals other; do cp long.wav \"$4/$stem.wav\"; done\n"
                                     "printf ' 40%%|##|\\n%8192s\\n'\n"
                                         + hold ("Separating"));

        clickExecute();
        ASSERT_TRUE (eventually (
            [&]
            {
                if (status() != text)
                    return false;

                cancel();
                return true;
            }));
        expectCancelled();
    }
}

TEST_F (RunControlTest, ALateCompletionDoesNoHarm)
{
    wantFullSongAlone();

    {
        // The message thread stands still until the first run's thread is gone, and finds its completion afterwards.
        const juce::MessageManagerLock lock;
        click (execute());
        const auto output = folder.getChild ("out/My Song - Stems/My Song - full mix.wav");
        for (auto waited = 0; waited < 60000 && execute().getButtonText() == "Cancel"; waited += 10)
        {
            juce::Thread::sleep (10);
            if (! output.existsAsFile() || numThreadsNamed ("Kelvane") > 0)
                continue;
            click (execute());
            break;
        }
        EXPECT_EQ (status(), "Starting...");
    }

    ASSERT_TRUE (eventually ([this] { return dialogs.size() == 2; }));
    ASSERT_TRUE (becomesIdle());
    for (const auto& dialog : dialogs)
        EXPECT_EQ (dialog.title, "Pipeline complete");
}

TEST_F (RunControlTest, ClosingTheWindowEndsARunAndItsWorker)
{
    holdWorker ("separate.py", "echo $$ >pid", "");
    clickExecute();
    ASSERT_TRUE (isHeld());
    const auto pid = uv.getFile ("pid").loadFileAsString().trim();

    onMessageThread ([this] { window.reset(); });
    EXPECT_FALSE (juce::File ("/proc").getChildFile (pid).getChildFile ("exe").exists());
    deliverMessages();
    EXPECT_TRUE (dialogs.empty());
}
