#include "render/BatchAnalyzer.h"

#include "pipeline/PipelineConfig.h"
#include "pipeline/TemporaryFolderName.h"

#include <iostream>

BatchAnalyzer::BatchAnalyzer (const std::vector<Song>& songsToUse) : Batch (songsToUse) {}

static void printResult (const Song& song, double bpm, int key)
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
}

void BatchAnalyzer::startSong (const Song& song)
{
    downloadFolder = song.isUrl() ? newTemporaryFolder ("cache-") : juce::File();
    runner = song.isUrl() ? std::make_unique<AnalysisRunner> (song.url, downloadFolder)
                          : std::make_unique<AnalysisRunner> (song.file);

    runner->onFinished =
        [this, &song] (bool success, double bpm, int key, const juce::File&, const juce::String& message)
    {
        if (isCancelled())
            return;

        if (success)
            printResult (song, bpm, key);

        analysisFinished (message);
    };

    if (! song.isUrl() && ! song.file.existsAsFile())
        analysisFinished ("Input file does not exist:\n" + song.file.getFullPathName());
    else if (! runner->startThread())
        analysisFinished ("Could not start a thread. Close other programs and try again.");
}

void BatchAnalyzer::cancelSong()
{
    runner->cancel();
    analysisFinished ("Cancelled.");
}

void BatchAnalyzer::analysisFinished (const juce::String& message)
{
    runner->waitForThreadToExit (-1);

    if (downloadFolder != juce::File())
        downloadFolder.deleteRecursively();

    songFinished (message);
}
