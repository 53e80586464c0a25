#include "render/BatchRenderer.h"

#include "pipeline/SharedMessages.h"

BatchRenderer::BatchRenderer (const CommandLine& commandLine)
    : Batch (commandLine.songs), settings (commandLine.settings)
{
}

void BatchRenderer::startSong (const Song& song)
{
    auto config = settings;
    config.useUrl = song.isUrl();
    config.url = song.url;
    config.inputFile = song.file;

    runner = std::make_unique<PipelineRunner> (config);
    runner->checksWrites = true;
    runner->onProgress = [this] (double fraction, const juce::String& text)
    {
        lastFraction = fraction;
        display.show (fraction, describe (text));
    };
    runner->onFinished = [this] (bool success, const juce::String& message) { runFinished (success, message); };

    if (! runner->startThread())
        runFinished (false, messages::threadNotStarted);
}

void BatchRenderer::cancelSong()
{
    display.show (lastFraction, "Cancelling...");
    runner->cancel();
}

void BatchRenderer::runFinished (bool success, const juce::String& message)
{
    runner->waitForThreadToExit (-1);
    display.print (success ? message : describe (isCancelled() ? messages::cancelled : "Failed."));
    songFinished (success ? juce::String() : message);
}
