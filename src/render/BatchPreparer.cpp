#include "render/BatchPreparer.h"

#include "pipeline/ThreadFailures.h"

/** A preparation is a batch of one, without a song. */
static const std::vector<Song>& onePreparation()
{
    static const std::vector<Song> songs (1);
    return songs;
}

BatchPreparer::BatchPreparer() : Batch (onePreparation()) {}

void BatchPreparer::startSong (const Song&)
{
    runner.onPlan = [this] (const juce::String& text) { display.print (text); };
    runner.onProgress = [this] (double fraction, const juce::String& text) { display.show (fraction, text); };
    runner.onFinished = [this] (bool success, const juce::String& message) { finished (success, message); };

    if (! runner.startThread())
        finished (false, threadfailures::notStarted);
}

void BatchPreparer::cancelSong()
{
    runner.cancel();
}

void BatchPreparer::finished (bool success, const juce::String& message)
{
    runner.waitForThreadToExit (-1);
    display.print (success ? message : juce::String (isCancelled() ? "Cancelled." : "Failed."));
    songFinished (success ? juce::String() : message);
}
