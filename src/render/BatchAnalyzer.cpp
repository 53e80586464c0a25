#include "render/BatchAnalyzer.h"

#include "pipeline/PipelineConfig.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/TemporaryFolder.h"

#include <iostream>

BatchAnalyzer::BatchAnalyzer (const std::vector<Song>& songsToUse) : Batch (songsToUse) {}

/** @returns the message for the user if standard output cannot be written; otherwise an empty string */
static juce::String printResult (const Song& song, double bpm, int key)
{
    auto* const result = new juce::DynamicObject();
    const juce::var owner (result);
    result->setProperty ("song", song.isUrl() ? song.url : song.file.getFullPathName());
    result->setProperty ("bpm", bpm);
    result->setProperty ("key_index", key);
    result->setProperty ("key", PipelineConfig::keyNames[static_cast<size_t> (key)]);
    const auto format =
        juce::JSON::FormatOptions {}.withSpacing (juce::JSON::Spacing::singleLine).withMaxDecimalPlaces (3);
    std::cout << juce::JSON::toString (owner, format) << std::endl;
    return std::cout ? juce::String() : juce::String ("The result could not be written. Is the disk full?");
}

void BatchAnalyzer::startSong (const Song& song)
{
    if (! song.isUrl() && ! song.file.existsAsFile())
    {
        songFinished ("Input file does not exist:\n" + song.file.getFullPathName());
        return;
    }

    if (song.isUrl())
    {
        downloadFolder = newTemporaryFolder ("cache-");
        runner = std::make_unique<AnalysisRunner> (song.url, downloadFolder);
    }
    else
    {
        downloadFolder = juce::File();
        runner = std::make_unique<AnalysisRunner> (song.file);
    }

    runner->onFinished =
        [this, &song] (bool success, double bpm, int key, const juce::File&, const juce::String& message)
    {
        if (! isCancelled())
            analysisFinished (success ? printResult (song, bpm, key) : message);
    };

    if (! runner->startThread())
        analysisFinished (messages::threadNotStarted);
}

void BatchAnalyzer::cancelSong()
{
    runner->cancel();
    analysisFinished (messages::cancelled);
}

void BatchAnalyzer::analysisFinished (const juce::String& message)
{
    runner->waitForThreadToExit (-1);

    if (downloadFolder != juce::File())
        downloadFolder.deleteRecursively();

    songFinished (message);
}
