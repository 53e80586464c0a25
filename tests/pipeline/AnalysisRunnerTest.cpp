#include "pipeline/AnalysisRunner.h"

#include "pipeline/PythonBridge.h"
#include "support/MessageThread.h"
#include "support/StandInUv.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

class AnalysisRunnerTest : public testing::Test
{
protected:
    AnalysisRunnerTest()
    {
        uv.getFile ("song.wav").replaceWithText ("any file");
        uv.setWorker ("yt2wav.py", "cp song.wav \"$4/A Title.wav\" && echo \"WAV_PATH::$4/A Title.wav\"");
        uv.setWorker ("analyze.py", StandInUv::detecting (112.04));
    }

    template <typename... Source>
    void start (const Source&... source)
    {
        runner = std::make_unique<AnalysisRunner> (source...);
        numCalls = 0;
        runner->onFinished = [this] (bool s, double b, int k, const juce::File& d, const juce::String& e)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread());
            ++numCalls;
            success = s;
            bpm = b;
            key = k;
            download = d;
            error = e;
        };
        ASSERT_TRUE (runner->startThread());
    }

    void waitForEnd (int expectedCalls)
    {
        ASSERT_TRUE (runner->waitForThreadToExit (60000));
        deliverMessages();
        EXPECT_EQ (numCalls, expectedCalls);
    }

    void analyzeFile()
    {
        start (uv.getFile ("song.wav"));
        waitForEnd (1);
    }

    void analyzeUrl()
    {
        start (url, downloads);
        waitForEnd (1);
    }

    juce::String arguments (const juce::String& worker) const { return uv.getArguments (worker).joinIntoString ("|"); }

    static juce::String scriptPath (const char* name)
    {
        return PythonBridge::scriptsDir().getChildFile (name).getFullPathName();
    }

    TemporaryFolder folder;
    StandInUv uv { folder.getChild ("stand-in uv") };
    const juce::String url = "https://example.org/a song";
    const juce::File downloads = folder.getChild ("new/downloads");
    std::unique_ptr<AnalysisRunner> runner;
    int numCalls = 0, key = -1;
    bool success = false;
    double bpm = -1.0;
    juce::File download;
    juce::String error;
};

TEST_F (AnalysisRunnerTest, ReportsTempoAndKeyOrTheirDefaults)
{
    struct Case
    {
        const char* result;
        double bpm;
        int key;
    };

    for (const auto& [result, expectedBpm, expectedKey] : std::initializer_list<Case> {
             { "{\"bpm\": 112.04, \"key_index\": 2}", 112.04, 2 },
             { "{\"bpm\": \"87.5\", \"key_index\": 12}", 87.5, 11 },
             { "{\"key_index\": -1}", 0.0, 0 },
             { "not JSON", 0.0, 0 },
         })
    {
        uv.setWorker ("analyze.py", "echo 'RESULT::{\"bpm\": 1}'; echo 'x RESULT:: " + juce::String (result)
                                        + "'; printf '\\377 noise\\n%9000s'");
        analyzeFile();
        EXPECT_TRUE (success);
        EXPECT_EQ (bpm, expectedBpm) << result;
        EXPECT_EQ (key, expectedKey) << result;
        EXPECT_EQ (download, juce::File());
    }

    EXPECT_EQ (arguments ("analyze.py"),
               "run|" + scriptPath ("analyze.py") + "|" + uv.getFile ("song.wav").getFullPathName() + "|--bpm|--key");
}

TEST_F (AnalysisRunnerTest, ReportsTheDownloadEvenIfTheDetectionFails)
{
    analyzeUrl();
    EXPECT_TRUE (success) << error;
    EXPECT_EQ (download, downloads.getChildFile ("A Title.wav"));
    EXPECT_EQ (arguments ("yt2wav.py"),
               "run|" + scriptPath ("yt2wav.py") + "|" + url + "|" + downloads.getFullPathName());

    uv.setWorker ("analyze.py", "printf 'Looking\\n%8192s\\nThe song is silent.\\n'; exit 1");
    analyzeUrl();
    EXPECT_FALSE (success);
    EXPECT_EQ (error, "Analysis failed.\n\nLooking\nThe song is silent.");
    EXPECT_EQ (bpm, 0.0);
    EXPECT_TRUE (download.existsAsFile());

    for (const auto& [body, tail] :
         { std::pair ("echo why; exit 1", "why"), { "echo WAV_PATH::/nowhere.wav", "WAV_PATH::/nowhere.wav" } })
    {
        uv.setWorker ("yt2wav.py", body);
        analyzeUrl();
        EXPECT_EQ (error, juce::String ("YouTube download failed. Check the URL and your connection.\n\n") + tail);
        EXPECT_EQ (download, juce::File());
    }
}

TEST_F (AnalysisRunnerTest, WaitsForTheExitCodeOfAWorkerThatClosesItsOutputEarly)
{
    uv.setWorker ("analyze.py", "echo RESULT::{}; exec >&- 2>&-; sleep 0.1; exit 3");
    analyzeFile();
    EXPECT_EQ (error, "Analysis failed.\n\nRESULT::{}");
}

TEST_F (AnalysisRunnerTest, KillsTheWorkerAndReportsNothingWhenCancelled)
{
    for (const auto* worker : { "analyze.py", "yt2wav.py" })
    {
        uv.holdWorker (worker);
        start (url, downloads);
        const auto pid = uv.waitForHeldWorker (*runner);
        runner->cancel();
        waitForEnd (0);
        EXPECT_FALSE (juce::File ("/proc/" + pid).exists()) << worker;
    }
}

TEST_F (AnalysisRunnerTest, LetsAWorkerInheritNoOpenFile)
{
    juce::FileOutputStream open (folder.getChild ("open elsewhere"));
    uv.setWorker ("analyze.py", "ls -l /proc/$$/fd >fds");
    analyzeFile();

    const auto inherited = uv.getFile ("fds").loadFileAsString();
    EXPECT_TRUE (inherited.contains ("0 -> ")) << inherited;
    EXPECT_FALSE (inherited.contains ("open elsewhere")) << inherited;
}
