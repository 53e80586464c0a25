#pragma once

#include "audio/AudioFile.h"
#include "pipeline/PipelineRunner.h"
#include "support/MessageThread.h"
#include "support/Signals.h"
#include "support/TemporaryFolder.h"
#include "support/WavHeader.h"

#include <gtest/gtest.h>

/** Runs a PipelineRunner on a short song and keeps what it reports. */
class PipelineRunnerFixture : public testing::Test
{
protected:
    PipelineRunnerFixture()
    {
        // Runs make their folders where the environment says that temporary files belong.
        setenv ("TMPDIR", folder.getChild ("temporary").getFullPathName().toRawUTF8(), 1);

        config.inputFile = folder.getChild ("My Song.wav");
        config.outputDir = folder.getChild ("out");
        config.fullSong = true;
        config.bitDepth = 16;

        juce::String error;
        audiofile::writeWav (config.inputFile, signals::noise (2, 20000), 44100.0, 16, error);
    }

    ~PipelineRunnerFixture() override { unsetenv ("TMPDIR"); }

    void start()
    {
        runner = std::make_unique<PipelineRunner> (config);
        runner->onProgress = [this] (double fraction, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread());
            EXPECT_EQ (numCompletions, 0);
            progress.emplace_back (fraction, text);
            onReport (fraction);
        };
        runner->onFinished = [this] (bool wasSuccess, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread());
            ++numCompletions;
            success = wasSuccess;
            message = text;
            finished.signal();
        };
        ASSERT_TRUE (runner->startThread());
    }

    void waitForCompletion()
    {
        ASSERT_TRUE (finished.wait (60000));
        ASSERT_TRUE (runner->waitForThreadToExit (60000));

        // Whatever else the run has posted would come before this.
        deliverMessages();
        EXPECT_EQ (numCompletions, 1);
    }

    void run()
    {
        numCompletions = 0;
        progress.clear();
        start();
        waitForCompletion();
    }

    int numTemporaryFolders() const
    {
        return folder.getChild ("temporary/Kelvane").getNumberOfChildFiles (juce::File::findDirectories);
    }

    juce::File outputFolder() const { return config.outputDir.getChildFile ("My Song - Stems"); }
    juce::File output() const { return outputFolder().getChildFile ("My Song - full mix.wav"); }

    TemporaryFolder folder;
    PipelineConfig config;
    std::unique_ptr<PipelineRunner> runner;
    juce::WaitableEvent finished;
    std::vector<std::pair<double, juce::String>> progress;
    std::function<void (double)> onReport = [] (double) {};
    int numCompletions = 0;
    bool success = false;
    juce::String message;
};
