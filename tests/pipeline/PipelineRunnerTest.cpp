#include "PipelineRunnerFixture.h"

#include <cmath>

using PipelineRunnerTest = PipelineRunnerFixture;

/** Copied by each report of a run. */
struct ThrowsWhenCopied
{
    ThrowsWhenCopied() = default;
    ThrowsWhenCopied (ThrowsWhenCopied&&) = default;
    ThrowsWhenCopied (const ThrowsWhenCopied&) { throw 1; }
    void operator() (double, const juce::String&) const {}
};

TEST_F (PipelineRunnerTest, AnExceptionOfAnyTypeEndsInACompletion)
{
    runner = std::make_unique<PipelineRunner> (config);
    runner->onProgress = ThrowsWhenCopied();
    runner->onFinished = [this] (bool, const juce::String& text)
    {
        ++numCompletions;
        message = text;
    };
    EXPECT_THROW (runner->run(), int);
    deliverMessages();
    EXPECT_EQ (numCompletions, 1);
    EXPECT_TRUE (message.startsWith ("Unexpected error: ")) << message;
}

TEST_F (PipelineRunnerTest, RendersTheFullSongAndTidiesUp)
{
    for (int repetition = 0; repetition < 2; ++repetition)
    {
        run();
        EXPECT_TRUE (success);
        EXPECT_EQ (message, "Wrote 1 file(s) to:\n" + outputFolder().getFullPathName());
        EXPECT_EQ (WavHeader (output()).numFrames, 20000u);
        EXPECT_EQ (numTemporaryFolders(), 0);

        ASSERT_EQ (progress.size(), 2u);
        EXPECT_EQ (progress[0], std::pair (0.68, juce::String ("Processing full mix...")));
        EXPECT_EQ (progress[1], std::pair (1.0, juce::String ("Done")));
    }
}

TEST_F (PipelineRunnerTest, LimitsTheRatio)
{
    config.stretchMode = StretchMode::TempoAndPitch;

    for (const auto& [percent, frames] :
         { std::pair (-100.0, 80000u), { 400.0, 5000u }, { -50.0, 40000u }, { 100.0, 10000u } })
    {
        config.percent = percent;
        run();
        EXPECT_TRUE (success);
        EXPECT_EQ (WavHeader (output()).numFrames, frames) << percent;
    }

    config.adjustMode = AdjustMode::Key;
    config.toKey = 7;
    run();
    EXPECT_EQ (WavHeader (output()).numFrames, static_cast<size_t> (20000.0 * std::pow (2.0, 5.0 / 12.0)));
}

TEST_F (PipelineRunnerTest, FailuresSayWhyAndLeaveTheTemporaryFolder)
{
    const auto failsWith = [this] (const juce::String& expected)
    {
        run();
        EXPECT_FALSE (success);
        EXPECT_EQ (message, expected);
    };

    config.adjustMode = AdjustMode::Bpm;
    config.toBpm = 120.5;
    failsWith ("Invalid BPM values (from 0, to 120.5).");
    EXPECT_EQ (numTemporaryFolders(), 1);
    config.adjustMode = AdjustMode::Percentage;

    folder.getChild ("out").replaceWithText ("a file in the way");
    failsWith ("Could not create the output folder:\n" + outputFolder().getFullPathName());
    folder.getChild ("out").deleteFile();

    config.bitDepth = 20;
    failsWith ("Could not create a 20-bit WAV writer.");

    config.inputFile.replaceWithText ("no audio");
    failsWith ("Could not read audio file:\n" + config.inputFile.getFullPathName());

    config.inputFile.deleteFile();
    failsWith ("Input file does not exist:\n" + config.inputFile.getFullPathName());
    EXPECT_EQ (numTemporaryFolders(), 5);
}

TEST_F (PipelineRunnerTest, WithNothingToRenderWritesNothing)
{
    config.fullSong = false;
    run();
    EXPECT_TRUE (success);
    EXPECT_EQ (message, "Wrote 0 file(s) to:\n" + outputFolder().getFullPathName());
}

TEST_F (PipelineRunnerTest, ACancelAtAnyMomentEndsInOneCompletion)
{
    config.percent = 25.0;
    juce::Random random (1);

    for (int attempt = 0; attempt < 40; ++attempt)
    {
        numCompletions = 0;
        progress.clear();
        start();
        juce::Time::waitForMillisecondCounter (juce::Time::getMillisecondCounter()
                                               + static_cast<juce::uint32> (random.nextInt (8)));
        runner->cancel();
        waitForCompletion();

        EXPECT_TRUE (success || message == "Cancelled.") << message;

        // What was begun was finished.
        EXPECT_TRUE (! output().existsAsFile() || WavHeader (output()).numFrames == 16000u);
    }
}

TEST_F (PipelineRunnerTest, ACancelEndsRenderingAndOverridesAFailure)
{
    for (const auto& input : { config.inputFile, folder.getChild ("missing.wav") })
    {
        config.inputFile = input;
        numCompletions = 0;
        runner = std::make_unique<PipelineRunner> (config);
        runner->onFinished = [this] (bool wasSuccess, const juce::String& text)
        {
            ++numCompletions;
            success = wasSuccess;
            message = text;
            finished.signal();
        };

        // On this very thread, which no scheduler can then let overtake the cancel.
        runner->cancel();
        runner->run();
        waitForCompletion();
        EXPECT_FALSE (success);
        EXPECT_EQ (message, "Cancelled.");
        EXPECT_FALSE (output().exists());
    }
}

TEST_F (PipelineRunnerTest, NeedsNoCallbacksAndOutlivesItsReports)
{
    runner = std::make_unique<PipelineRunner> (config);
    runner->run();
    runner.reset();
    EXPECT_TRUE (output().existsAsFile());
}
