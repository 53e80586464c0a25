#include "PipelineRunnerFixture.h"
#include "pipeline/PythonBridge.h"
#include "support/StandInUv.h"

class WorkerStagesTest : public PipelineRunnerFixture
{
protected:
    WorkerStagesTest()
    {
        config.fullSong = false;
        config.stems[0] = config.stems[2] = true;
        config.toBpm = 140.0;
        config.inputFile.copyFileTo (uv.getFile ("song.wav"));

        uv.setWorker ("yt2wav.py",
                      "mkdir \"$4\" && cp song.wav \"$4/A Title.wav\" && echo \"WAV_PATH::$4/A Title.wav\"");
        uv.setWorker ("analyze.py", StandInUv::detecting (112.04));
        uv.setWorker ("separate.py", "cp song.wav \"$4/drums.wav\" && cp song.wav \"$4/vocals.wav\"");
    }

    void useUrl()
    {
        config.useUrl = true;
        config.url = "https://example.org/watch?v=a b&c='$(d)'";
        config.inputFile = juce::File();
    }

    void detect (AdjustMode mode)
    {
        config.adjustMode = mode;
        config.autoBpm = mode == AdjustMode::Bpm;
        config.autoKey = mode == AdjustMode::Key;
    }

    juce::String firstRenderingStatus() const
    {
        for (const auto& [fraction, text] : progress)
            if (text.startsWith ("Processing"))
                return text;

        return {};
    }

    juce::String arguments (const juce::String& worker) const { return uv.getArguments (worker).joinIntoString ("|"); }

    static juce::String scriptPath (const char* name)
    {
        return PythonBridge::scriptsDir().getChildFile (name).getFullPathName();
    }

    StandInUv uv { folder.getChild ("stand-in uv") };
};

TEST_F (WorkerStagesTest, RunsAllThreeWorkersAndShowsTheirProgress)
{
    useUrl();
    detect (AdjustMode::Bpm);
    uv.setWorker ("yt2wav.py",
                  "echo '[download]  12% of 3 MB'\n echo 'Not a [download] line'\n mkdir \"$4\"\n cp song.wav "
                  "\"$4/A Title.wav\"\n echo 'WAV_PATH::/nowhere.wav'\n echo \"WAV_PATH::$4/A Title.wav\"\n echo bye");
    uv.setWorker ("separate.py", "cp song.wav \"$4/drums.wav\"; cp song.wav \"$4/vocals.wav\"\n"
                                 "printf ' 40%%|####  |\\r 250%%|#|\\r\\n[setup] Waiting\\n41 %%|\\n%%|\\n1%% "
                                 "42%%|\\nx%%|\\n 7%%|'");
    run();

    const auto outDir = config.outputDir.getChildFile ("A Title - Stems");
    EXPECT_EQ (message, "Wrote 2 file(s) to:\n" + outDir.getFullPathName());
    EXPECT_TRUE (outDir.getChildFile ("A Title - drums.wav").existsAsFile());
    EXPECT_TRUE (outDir.getChildFile ("A Title - vocals.wav").existsAsFile());
    EXPECT_EQ (numTemporaryFolders(), 0);

    const std::vector<std::pair<double, juce::String>> expected {
        { 0.02, "Downloading YouTube audio (first run may take longer while uv sets up)..." },
        { 0.05, "Downloading... 12% of 3 MB" },
        { 0.12, "Detecting source BPM..." },
        { 0.16, "Separating stems with htdemucs (first run downloads the model)..." },
        { 0.36, "Separating stems... 40%" },
        { 0.66, "Separating stems... 100%" },
        { 0.66, "Waiting" },
        { 0.195, "Separating stems... 7%" },
        { 0.68, "Processing drums... (detected 112.0 BPM)" },
        { 0.83, "Processing vocals... (detected 112.0 BPM)" },
        { 1.0, "Done" },
    };
    ASSERT_EQ (progress.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_NEAR (progress[i].first, expected[i].first, 1.0e-9) << expected[i].second;
        EXPECT_EQ (progress[i].second, expected[i].second);
    }

    const auto downloadFolder = uv.getArguments ("yt2wav.py")[3];
    const auto tempDir = juce::File (downloadFolder).getParentDirectory();
    const auto source = downloadFolder + "/A Title.wav";
    EXPECT_EQ (tempDir.getParentDirectory(), folder.getChild ("temporary/Kelvane"));
    EXPECT_EQ (arguments ("yt2wav.py"), "run|" + scriptPath ("yt2wav.py") + "|" + config.url + "|" + downloadFolder);
    EXPECT_EQ (arguments ("analyze.py"), "run|" + scriptPath ("analyze.py") + "|" + source + "|--bpm");
    EXPECT_EQ (arguments ("separate.py"), "run|" + scriptPath ("separate.py") + "|" + source + "|"
                                              + tempDir.getChildFile ("stems").getFullPathName()
                                              + "|--model|htdemucs|--stems|drums,vocals");
}

TEST_F (WorkerStagesTest, ReusesADownloadThatExistsAtTheStart)
{
    useUrl();
    config.cachedAudio = uv.getFile ("song.wav");
    run();
    EXPECT_TRUE (success) << message;
    EXPECT_EQ (progress.front(), std::pair (0.05, juce::String ("Reusing audio downloaded during analysis...")));
    EXPECT_TRUE (config.cachedAudio.existsAsFile());
    EXPECT_TRUE (uv.getArguments ("yt2wav.py").isEmpty());

    // This link is broken until the run creates its temporary folder, which is after the decision to download.
    folder.getChild ("temporary").deleteRecursively();
    folder.getChild ("temporary").createDirectory();
    ASSERT_TRUE (uv.getFile ("song.wav").copyFileTo (folder.getChild ("temporary/song.wav")));
    config.cachedAudio = folder.getChild ("cached.wav");
    ASSERT_TRUE (juce::File::createSymbolicLink (
        config.cachedAudio, folder.getChild ("temporary").getFullPathName() + "/Kelvane/../song.wav", false));
    run();
    EXPECT_TRUE (success) << message;
    EXPECT_FALSE (uv.getArguments ("yt2wav.py").isEmpty());
}

TEST_F (WorkerStagesTest, LimitsADetectedKeyToTheTable)
{
    detect (AdjustMode::Key);
    for (const auto& [index, name] : { std::pair ("2", "D"), { "12", "B" }, { "-1", "C" }, { "null", "C" } })
    {
        uv.setWorker ("analyze.py", "echo 'RESULT::{\"key_index\": " + juce::String (index) + "}'");
        run();
        EXPECT_EQ (firstRenderingStatus(), "Processing drums... (detected key: " + juce::String (name) + ")");
    }
    EXPECT_EQ (uv.getArguments ("analyze.py")[3], "--key");
}

TEST_F (WorkerStagesTest, QuotesAWorkerThatFails)
{
    const juce::String downloadFailed = "YouTube download failed. Check the URL and your connection.\n\n";
    const juce::String separationFailed = "Stem separation failed.\n\n";
    const juce::String noVocals = "Separation did not produce the 'vocals' stem.\n\n";
    const auto quote = juce::String::repeatedString ("x", 699) + "1";

    struct Case
    {
        juce::String worker, body, expected;
    };

    detect (AdjustMode::Bpm);
    useUrl();

    for (const auto& [worker, body, expected] : std::initializer_list<Case> {
             { "yt2wav.py", "echo no such video >&2; exit 1", downloadFailed + "no such video" },
             { "yt2wav.py", "echo WAV_PATH::", downloadFailed + "WAV_PATH::" },
             { "yt2wav.py", "echo WAV_PATH::/nowhere.wav", downloadFailed + "WAV_PATH::/nowhere.wav" },
             { "yt2wav.py", "echo WAV_PATH::song.wav; exit 1", downloadFailed + "WAV_PATH::song.wav" },
             { "analyze.py", "echo 'RESULT::{\"bpm\": 100}'; exit 2",
               "Auto-detection failed.\n\nRESULT::{\"bpm\": 100}" },
             { "analyze.py", "printf ' \\n\\r\\n first \\r\\nlast'", "Auto-detection failed.\n\nfirst\nlast" },
             { "analyze.py", "echo RESULT::nonsense", "Invalid BPM values (from 0, to 140)." },
             { "separate.py", "cp song.wav \"$4/drums.wav\"; echo why; exit 1", separationFailed + "why" },
             { "separate.py", "cp song.wav \"$4/drums.wav\"; kill -11 $$", noVocals },
             { "separate.py", "printf '%700d' 1 | tr ' ' x; exit 1", separationFailed + quote },
             { "separate.py", "printf '%701d' 1 | tr ' ' x; exit 1", separationFailed + "..." + quote },
         })
    {
        const auto original = uv.getFile (worker + ".sh").loadFileAsString();
        uv.setWorker (worker, body);
        expectFailure (expected);
        EXPECT_FALSE (config.outputDir.exists());
        uv.setWorker (worker, original);
    }

    uv.getFile ("uv").setExecutePermission (false);
    expectFailure (downloadFailed);
}

TEST_F (WorkerStagesTest, FindsTheResultInUnrulyOutput)
{
    detect (AdjustMode::Bpm);

    for (const auto* body : {
             "head -c 1000000 /dev/zero | tr '\\0' x; echo 'RESULT::{\"bpm\": 112}'; yes noise | head -5000",
             "yes \"$(printf '\\377\\376\\200\\n\\303A\\360\\n\\303')\" | head -9000; printf "
             "'\\n\\303RESULT::{\"bpm\": 112}'",
             "exec 2>&1; echo 'RESULT::{\"bpm\": 1}'; echo 'text before RESULT::  {\"bpm\": 112}  ' >&2",
         })
    {
        uv.setWorker ("analyze.py", body);
        run();
        EXPECT_EQ (firstRenderingStatus(), "Processing drums... (detected 112.0 BPM)") << body;
    }
}

TEST_F (WorkerStagesTest, KillsTheWorkerWhenCancelled)
{
    detect (AdjustMode::Bpm);
    useUrl();

    for (const auto* worker : { "separate.py", "analyze.py", "yt2wav.py" })
    {
        uv.holdWorker (worker);
        start();
        const auto pid = uv.waitForHeldWorker (*runner);
        runner->cancel();
        waitForCompletion();
        EXPECT_EQ (message, "Cancelled.");
        EXPECT_FALSE (juce::File ("/proc/" + pid).exists()) << worker;
    }
}

TEST_F (WorkerStagesTest, LooksForUvInTheUsualPlaces)
{
    for (const auto* place : { "/opt/homebrew/bin/uv", "/usr/local/bin/uv", "/usr/bin/uv" })
        if (juce::File (place).existsAsFile())
            GTEST_SKIP() << "This machine has uv at " << place << ", where it is always found.";

    const auto path = juce::SystemStats::getEnvironmentVariable ("PATH", {});
    const auto home = juce::SystemStats::getEnvironmentVariable ("HOME", {});
    const auto empty = folder.getChild ("empty");
    empty.createDirectory();
    setenv ("PATH", empty.getChildFile ("onpath").getFullPathName().toRawUTF8(), 1);
    setenv ("HOME", empty.getFullPathName().toRawUTF8(), 1);

    for (const auto& named : { empty.getChildFile ("missing"), empty })
    {
        setenv ("KELVANE_UV", named.getFullPathName().toRawUTF8(), 1);
        run();
        EXPECT_TRUE (
            message.startsWith ("Could not find 'uv', which is needed to run the Python workers.\nInstall it ("))
            << message;
        EXPECT_EQ (numTemporaryFolders(), 0);
    }

    for (const auto* place : { "onpath/uv", ".cargo/bin/uv", ".local/bin/uv" })
    {
        const auto file = empty.getChildFile (place);
        file.create();
        file.setExecutePermission (true);
        EXPECT_EQ (PythonBridge::findUv(), file);
    }

    setenv ("PATH", path.toRawUTF8(), 1);
    setenv ("HOME", home.toRawUTF8(), 1);
}
