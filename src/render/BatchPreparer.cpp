#include "render/BatchPreparer.h"

#include "pipeline/SharedMessages.h"

/** A batch needs a song, so a preparation has a placeholder without a file or a URL. */
static const std::vector<Song>& onePlaceholder()
{
    static const std::vector<Song> songs (1);
    return songs;
}

BatchPreparer::BatchPreparer() : Batch (onePlaceholder()) {}

void BatchPreparer::startSong (const Song&)
{
    runner.onPlan = [this] (const juce::String& text) { display.print (text); };
    runner.onProgress = [this] (double fraction, const juce::String& text) { display.show (fraction, text); };
    runner.onFinished = [this] (bool success, const juce::String& message) { finished (success, message); };

    if (! runner.startThread())
        finished (false, messages::threadNotStarted);
}

void BatchPreparer::cancelSong()
{
    runner.cancel();
}

void BatchPreparer::finished (bool success, const juce::String& message)
{
    runner.waitForThreadToExit (-1);
    display.print (success ? message : juce::String (isCancelled() ? messages::cancelled : "Failed."));
    songFinished (success ? juce::String() : message);
}
