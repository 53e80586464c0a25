#include "pipeline/PipelineRunner.h"

#include "pipeline/PythonBridge.h"
#include "support/JobFixture.h"

class PipelineRunnerTest : public JobFixture
{
protected:
    PipelineRunnerTest()
    {
        config.inputFile = song;
        config.outputDir = folder.getChild ("out");
        config.fullSong = true;
        config.bitDepth = 16;
    }

    void useAllWorkers()
    {
        config.useUrl = true;
        config.url = "https://example.org/watch?v=a b&c='$(d)'";
        config.inputFile = juce::File();
        config.adjustMode = AdjustMode::Bpm;
        config.autoBpm = true;
        config.toBpm = 140.0;
        config.stems[0] = config.stems[2] = true;
        config.fullSong = false;
    }

    void prepare()
    {
        message.clear();
        progress.clear();
        runner = std::make_unique<PipelineRunner> (config);
        runner->onProgress = [this] (double fraction, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread() && message.isEmpty());
            progress.add (juce::String (fraction, 3) + " " + text);
        };
        runner->onFinished = [this] (bool success, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread() && message.isEmpty());
            message = (success ? "" : "! ") + text;
        };
    }

    void waitForCompletion()
    {
        ASSERT_TRUE (runner->waitForThreadToExit (60000));
        deliverMessages();
    }

    /** @returns the final message, after an exclamation mark if the run failed */
    juce::String run()
    {
        prepare();
        EXPECT_TRUE (runner->startThread());
        waitForCompletion();
        return message;
    }

    /** @returns the number of samples in the output, or 0 if the output is missing or damaged */
    juce::int64 outputLength() const
    {
        juce::AudioFormatManager formats;
        audiofile::registerFormats (formats);
        const auto output = config.outputDir.getChildFile ("My Song - Stems/My Song - full mix.wav");
        const auto reader = audiofile::open (formats, output);
        return reader != nullptr ? reader->lengthInSamples : 0;
    }

    PipelineConfig config;
    std::unique_ptr<PipelineRunner> runner;
    juce::StringArray progress;
    juce::String message;
};

/** A callback that acts whenever it is copied. The run's thread copies it for each report, and so acts. */
struct CallsWhenCopied
{
    explicit CallsWhenCopied (std::function<void()> actionToTake) : action (std::move (actionToTake)) {}
    CallsWhenCopied (const CallsWhenCopied& other) : action (other.action) { action(); }
    CallsWhenCopied (CallsWhenCopied&&) = default;
    void operator() (double, const juce::String&) const {}
    std::function<void()> action;
};

TEST_F (PipelineRunnerTest, ReportsCompletionAfterAnExceptionOfAnyType)
{
    prepare();
    runner->onProgress = CallsWhenCopied ([] { throw 1; });
    EXPECT_THROW (runner->run(), int);
    deliverMessages();
    EXPECT_TRUE (message.startsWith ("! Unexpected error: ")) << message;
}

TEST_F (PipelineRunnerTest, RendersNoMoreFilesAfterACancellation)
{
    useAllWorkers();
    config.fullSong = true;
    const auto numFiles = [this]
    { return config.outputDir.getChildFile ("A Title - Stems").getNumberOfChildFiles (juce::File::findFiles); };
    prepare();
    runner->onProgress = CallsWhenCopied (
        [&]
        {
            if (numFiles() == 1)
                runner->cancel();
        });
    ASSERT_TRUE (runner->startThread());
    waitForCompletion();
    EXPECT_EQ (message, "! Cancelled.");
    EXPECT_EQ (numFiles(), 2);
}

TEST_F (PipelineRunnerTest, RefusesASongLargerThanMemoryBeforeReadingIt)
{
    const auto memory = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;
    const auto numBytes = static_cast<juce::int64> (memory / 50.0), headerSize = song.getSize() - 4 * 20000;
    const auto peakMemory = []
    {
        const auto status = juce::File ("/proc/self/status").loadFileAsString();
        return status.fromFirstOccurrenceOf ("VmHWM:", false, false).getDoubleValue() * 1024.0;
    };

    {
        juce::FileOutputStream file (song);
        file.setPosition (headerSize - 4);
        file.writeInt (static_cast<int> (numBytes));
        file.setPosition (headerSize + numBytes); // leaves a hole, which takes up no space
        file.writeByte (0);
    }

    config.percent = -75.0;
    config.sampleRate = 384000;
    const auto before = peakMemory();
    EXPECT_EQ (run(), "! Unexpected error: std::bad_alloc");
    EXPECT_LT (peakMemory() - before, memory / 100.0);
}

TEST_F (PipelineRunnerTest, LimitsTheRatio)
{
    config.stretchMode = StretchMode::TempoAndPitch;

    for (const auto& [percent, length] : { std::pair (-100.0, 80000), { 400.0, 5000 }, { 60.0, 12500 } })
    {
        config.percent = percent;
        run();
        EXPECT_EQ (outputLength(), length) << percent;
    }

    config.adjustMode = AdjustMode::Key;
    config.toKey = 7;
    run();
    EXPECT_EQ (outputLength(), 26696) << "five semitones down";
}

TEST_F (PipelineRunnerTest, KeepsTheTemporaryFolderAfterAFailure)
{
    config.adjustMode = AdjustMode::Bpm;
    config.toBpm = 120.5;
    EXPECT_EQ (run(), "! Invalid BPM values (from 0, to 120.5).");
    EXPECT_EQ (numTemporaryFolders(), 1);

    config.adjustMode = AdjustMode::Percentage;
    config.outputDir.replaceWithText ("a file in the way");
    EXPECT_EQ (run(),
               "! Could not create the output folder:\n" + folder.getChild ("out/My Song - Stems").getFullPathName());

    song.deleteFile();
    EXPECT_EQ (run(), "! Input file does not exist:\n" + song.getFullPathName());
}

TEST_F (PipelineRunnerTest, CompletesOnceWheneverItIsCancelled)
{
    config.percent = 25.0;
    juce::Random random (1);

    for (int attempt = 0; attempt < 40; ++attempt)
    {
        prepare();
        ASSERT_TRUE (runner->startThread());
        juce::Thread::sleep (random.nextInt (8));
        runner->cancel();
        waitForCompletion();
        EXPECT_TRUE (message.startsWith ("Wrote 1 file") || message == "! Cancelled.") << message;
        EXPECT_TRUE (outputLength() == 0 || outputLength() == 16000);
    }

    config.inputFile = folder.getChild ("missing.wav");
    prepare();
    runner->cancel();
    runner->run();
    waitForCompletion();
    EXPECT_EQ (message, "! Cancelled.") << "a cancellation takes precedence over a failure";
}

TEST_F (PipelineRunnerTest, RunsAllThreeWorkersAndShowsTheirProgress)
{
    useAllWorkers();
    const auto separates = file ("separate.py.sh").loadFileAsString();
    setWorker ("yt2wav.py", "echo '[download]  12% of 3 MB'; echo 'Not a [download] line'; echo WAV_PATH::/nowhere\n"
                                + file ("yt2wav.py.sh").loadFileAsString() + "echo bye");
    setWorker ("separate.py", separates
                                  + "printf ' 40%%|####  |\\r 250%%|#|\\r\\n[setup] Waiting\\n41 %%|\\n%%|\\n"
                                    "1%% 42%%|\\nx%%|\\n 7%%|'");

    const auto outDir = config.outputDir.getChildFile ("A Title - Stems");
    EXPECT_EQ (run(), "Wrote 2 file(s) to:\n" + outDir.getFullPathName());
    EXPECT_TRUE (outDir.getChildFile ("A Title - drums.wav").existsAsFile());
    EXPECT_TRUE (outDir.getChildFile ("A Title - vocals.wav").existsAsFile());
    EXPECT_EQ (numTemporaryFolders(), 0);
    EXPECT_EQ (progress.joinIntoString ("\n"),
               "0.020 Downloading YouTube audio (first run may take longer while uv sets up)...\n"
               "0.050 Downloading... 12% of 3 MB\n"
               "0.120 Detecting source BPM...\n"
               "0.160 Separating stems with htdemucs (first run downloads the model)...\n"
               "0.360 Separating stems... 40%\n"
               "0.660 Separating stems... 100%\n"
               "0.660 Waiting\n"
               "0.195 Separating stems... 7%\n"
               "0.680 Processing drums... (detected 112.0 BPM)\n"
               "0.830 Processing vocals... (detected 112.0 BPM)\n"
               "1.000 Done");

    const auto download = arguments ("yt2wav.py").fromLastOccurrenceOf ("|", false, false);
    const auto temporary = juce::File (download).getParentDirectory();
    const auto script = [] (const char* name) { return "run|" + PythonBridge::scriptsDir().getFullPathName() + name; };
    EXPECT_EQ (temporary.getParentDirectory(), folder.getChild ("temporary/Kelvane"));
    EXPECT_EQ (arguments ("yt2wav.py"), script ("/yt2wav.py|") + config.url + "|" + download);
    EXPECT_EQ (arguments ("analyze.py"), script ("/analyze.py|") + download + "/A Title.wav|--bpm");
    EXPECT_EQ (arguments ("separate.py"), script ("/separate.py|") + download + "/A Title.wav|"
                                              + temporary.getFullPathName()
                                              + "/stems|--model|htdemucs|--stems|drums,vocals");

    config.cachedAudio = song;
    run();
    EXPECT_EQ (progress[0], "0.050 Reusing audio downloaded during analysis...");
    EXPECT_EQ (numStarts ("yt2wav.py"), 1);
    EXPECT_TRUE (song.existsAsFile());

    setWorker ("separate.py", separates + "echo noise >\"$4/vocals.wav\"");
    EXPECT_TRUE (run().matchesWildcard ("! Could not read audio file:\n*/stems/vocals.wav", false)) << message;
}

TEST_F (PipelineRunnerTest, QuotesAWorkerThatFails)
{
    const juce::String downloadFailed = "YouTube download failed. Check the URL and your connection.\n\n";
    const juce::String detectionFailed = "Auto-detection failed.\n\n", separationFailed = "Stem separation failed.\n\n";
    const auto quote = juce::String::repeatedString ("x", 699) + "1";

    useAllWorkers();
    for (const auto& [worker, body, expected] : std::vector<std::tuple<juce::String, juce::String, juce::String>> {
             { "yt2wav.py", "echo no such video >&2; exit 1", downloadFailed + "no such video" },
             { "yt2wav.py", "echo WAV_PATH::/nowhere.wav", downloadFailed + "WAV_PATH::/nowhere.wav" },
             { "yt2wav.py", "echo WAV_PATH::$PWD/uv; exit 1",
               downloadFailed + "WAV_PATH::" + file ("uv").getFullPathName() },
             { "analyze.py", "echo RESULT::{}; exit 2", detectionFailed + "RESULT::{}" },
             { "analyze.py", "printf ' \\n\\r\\n first \\r\\nlast'", detectionFailed + "first\nlast" },
             { "analyze.py", "echo RESULT::nonsense", "Invalid BPM values (from 0, to 140)." },
             { "separate.py", "cp \"$song\" \"$4/drums.wav\"; kill -11 $$",
               "Separation did not produce the 'vocals' stem.\n\n" },
             { "separate.py", "printf '%700d' 1 | tr ' ' x; exit 1", separationFailed + quote },
             { "separate.py", "printf '%701d' 1 | tr ' ' x; exit 1", separationFailed + "..." + quote },
         })
    {
        const auto original = file (worker + ".sh").loadFileAsString();
        setWorker (worker, body);
        EXPECT_EQ (run(), "! " + expected);
        EXPECT_FALSE (config.outputDir.exists());
        setWorker (worker, original);
    }

    file ("uv").setExecutePermission (false);
    EXPECT_EQ (run(), "! " + downloadFailed);
}

TEST_F (PipelineRunnerTest, FindsTheResultInUnrulyOutput)
{
    useAllWorkers();

    for (const auto* body : {
             "head -c 1000000 /dev/zero | tr '\\0' x; echo 'RESULT::{\"bpm\": 112}'; yes noise | head -5000",
             "yes \"$(printf '\\377\\376\\200\\n\\303A\\360\\n\\303')\" | head -9000; printf "
             "'\\n\\303RESULT::{\"bpm\": 112}'",
             "exec 2>&1; echo 'RESULT::{\"bpm\": 1}'; echo 'text before RESULT::  {\"bpm\": 112}  ' >&2",
         })
    {
        setWorker ("analyze.py", body);
        run();
        EXPECT_EQ (progress[progress.size() - 2], "0.830 Processing vocals... (detected 112.0 BPM)") << body;
    }
}

TEST_F (PipelineRunnerTest, KillsTheWorkerWhenCancelled)
{
    useAllWorkers();

    for (const auto* worker : { "separate.py", "analyze.py", "yt2wav.py" })
    {
        holdWorker (worker);
        prepare();
        ASSERT_TRUE (runner->startThread());
        ASSERT_TRUE (isHeld (worker));
        runner->cancel();
        waitForCompletion();
        EXPECT_EQ (message, "! Cancelled.");
        EXPECT_FALSE (isRunning (worker)) << worker;
    }
}
