#include "PipelineRunnerFixture.h"

#include <cmath>

using PipelineRunnerTest = PipelineRunnerFixture;

/** Copied for each progress report. */
struct ThrowsWhenCopied
{
    ThrowsWhenCopied() = default;
    ThrowsWhenCopied (ThrowsWhenCopied&&) = default;
    ThrowsWhenCopied (const ThrowsWhenCopied&) { throw 1; }
    void operator() (double, const juce::String&) const {}
};

TEST_F (PipelineRunnerTest, ReportsCompletionAfterAnExceptionOfAnyType)
{
    prepare();
    runner->onProgress = ThrowsWhenCopied();
    EXPECT_THROW (runner->run(), int);
    deliverMessages();
    EXPECT_EQ (numCompletions, 1);
    EXPECT_TRUE (message.startsWith ("Unexpected error: ")) << message;
}

TEST_F (PipelineRunnerTest, LimitsTheRatioAndRemovesTheTemporaryFolder)
{
    config.stretchMode = StretchMode::TempoAndPitch;

    for (const auto& [percent, length] :
         { std::pair (-100.0, 80000), { 400.0, 5000 }, { -50.0, 40000 }, { 100.0, 10000 } })
    {
        config.percent = percent;
        run();
        EXPECT_EQ (message, "Wrote 1 file(s) to:\n" + outputFolder().getFullPathName());
        EXPECT_EQ (outputLength(), length) << percent;
        EXPECT_EQ (numTemporaryFolders(), 0);
        EXPECT_EQ (progress.back(), std::pair (1.0, juce::String ("Done")));
    }

    config.adjustMode = AdjustMode::Key;
    config.toKey = 7;
    run();
    EXPECT_EQ (outputLength(), static_cast<int> (20000.0 * std::pow (2.0, 5.0 / 12.0)));

    config.fullSong = false;
    run();
    EXPECT_TRUE (success);
    EXPECT_EQ (message, "Wrote 0 file(s) to:\n" + outputFolder().getFullPathName());
}

TEST_F (PipelineRunnerTest, KeepsTheTemporaryFolderAfterAFailure)
{
    config.adjustMode = AdjustMode::Bpm;
    config.toBpm = 120.5;
    expectFailure ("Invalid BPM values (from 0, to 120.5).");
    EXPECT_EQ (numTemporaryFolders(), 1);
    config.adjustMode = AdjustMode::Percentage;

    folder.getChild ("out").replaceWithText ("a file in the way");
    expectFailure ("Could not create the output folder:\n" + outputFolder().getFullPathName());
    folder.getChild ("out").deleteFile();

    config.bitDepth = 20;
    expectFailure ("Could not create a 20-bit WAV writer.");

    config.inputFile.replaceWithText ("no audio");
    expectFailure ("Could not read audio file:\n" + config.inputFile.getFullPathName());

    config.inputFile.deleteFile();
    expectFailure ("Input file does not exist:\n" + config.inputFile.getFullPathName());
    EXPECT_EQ (numTemporaryFolders(), 5);
}

TEST_F (PipelineRunnerTest, CompletesOnceWheneverItIsCancelled)
{
    config.percent = 25.0;
    juce::Random random (1);

    for (int attempt = 0; attempt < 40; ++attempt)
    {
        start();
        juce::Time::waitForMillisecondCounter (juce::Time::getMillisecondCounter()
                                               + static_cast<juce::uint32> (random.nextInt (8)));
        runner->cancel();
        waitForCompletion();
        EXPECT_TRUE (success || message == "Cancelled.") << message;
        EXPECT_TRUE (outputLength() == 0 || outputLength() == 16000);
    }
}

TEST_F (PipelineRunnerTest, ReportsACancellationEvenIfTheRunFails)
{
    for (const auto& input : { config.inputFile, folder.getChild ("missing.wav") })
    {
        config.inputFile = input;
        prepare();
        runner->cancel();
        runner->run();
        waitForCompletion();
        EXPECT_FALSE (success);
        EXPECT_EQ (message, "Cancelled.");
        EXPECT_EQ (outputLength(), 0);
    }
}

TEST_F (PipelineRunnerTest, RunsWithoutCallbacks)
{
    runner = std::make_unique<PipelineRunner> (config);
    runner->run();
    runner.reset();
    EXPECT_EQ (outputLength(), 20000);
}
