#pragma once

#include "audio/AudioFile.h"
#include "pipeline/PipelineRunner.h"
#include "support/MessageThread.h"
#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

/** Runs a PipelineRunner on a short song and keeps its reports. */
class PipelineRunnerFixture : public testing::Test
{
protected:
    PipelineRunnerFixture()
    {
        setenv ("TMPDIR", folder.getChild ("temporary").getFullPathName().toRawUTF8(), 1);
        config.inputFile = folder.getChild ("My Song.wav");
        config.outputDir = folder.getChild ("out");
        config.fullSong = true;
        config.bitDepth = 16;

        juce::String error;
        audiofile::writeWav (config.inputFile, signals::noise (2, 20000), 44100.0, 16, error);
    }

    ~PipelineRunnerFixture() override { unsetenv ("TMPDIR"); }

    void prepare()
    {
        numCompletions = 0;
        progress.clear();
        runner = std::make_unique<PipelineRunner> (config);
        runner->onProgress = [this] (double fraction, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread());
            EXPECT_EQ (numCompletions, 0);
            progress.emplace_back (fraction, text);
        };
        runner->onFinished = [this] (bool wasSuccess, const juce::String& text)
        {
            EXPECT_TRUE (juce::MessageManager::getInstance()->isThisTheMessageThread());
            ++numCompletions;
            success = wasSuccess;
            message = text;
        };
    }

    void start()
    {
        prepare();
        ASSERT_TRUE (runner->startThread());
    }

    void waitForCompletion()
    {
        ASSERT_TRUE (runner->waitForThreadToExit (60000));
        deliverMessages();
        EXPECT_EQ (numCompletions, 1);
    }

    void run()
    {
        start();
        waitForCompletion();
    }

    void expectFailure (const juce::String& expected)
    {
        run();
        EXPECT_FALSE (success);
        EXPECT_EQ (message, expected);
    }

    int numTemporaryFolders() const
    {
        return folder.getChild ("temporary/Kelvane").getNumberOfChildFiles (juce::File::findDirectories);
    }

    juce::File outputFolder() const { return config.outputDir.getChildFile ("My Song - Stems"); }

    /** @returns 0 if the output is missing or damaged */
    juce::int64 outputLength() const
    {
        juce::AudioFormatManager formats;
        audiofile::registerFormats (formats);
        const auto reader = audiofile::open (formats, outputFolder().getChildFile ("My Song - full mix.wav"));
        return reader != nullptr ? reader->lengthInSamples : 0;
    }

    TemporaryFolder folder;
    PipelineConfig config;
    std::unique_ptr<PipelineRunner> runner;
    std::vector<std::pair<double, juce::String>> progress;
    int numCompletions = 0;
    bool success = false;
    juce::String message;
};
