#include "render/BatchRenderer.h"

#include "render/ExitStatus.h"
#include "render/Interrupt.h"

#include <iostream>

BatchRenderer::BatchRenderer (const CommandLine& commandLineToUse) : commandLine (commandLineToUse) {}

int BatchRenderer::run()
{
    constexpr auto pollMilliseconds = 20;

    interrupt::listen();
    startTimer (pollMilliseconds);
    startNextSong();
    juce::MessageManager::getInstance()->runDispatchLoop();

    for (const auto& failure : failures)
        std::cerr << failure << std::endl;

    if (cancelled)
        return exitstatus::cancelled;

    return failures.isEmpty() ? exitstatus::success : exitstatus::runFailed;
}

void BatchRenderer::startNextSong()
{
    auto config = commandLine.settings;
    config.inputFile = commandLine.songs[numStarted++];

    runner = std::make_unique<PipelineRunner> (config);
    runner->onProgress = [this] (double fraction, const juce::String& text)
    {
        lastFraction = fraction;
        display.show (fraction, describe (text));
    };
    runner->onFinished = [this] (bool success, const juce::String& message) { songFinished (success, message); };

    if (! runner->startThread())
        songFinished (false, "Could not start a thread. Close other programs and try again.");
}

void BatchRenderer::songFinished (bool success, const juce::String& message)
{
    runner->waitForThreadToExit (-1);
    const auto isLast = numStarted == commandLine.songs.size();

    if (success)
        display.print (message);
    else
    {
        display.print (describe (cancelled ? "Cancelled." : "Failed."));
        failures.add (describe (message));
    }

    // A Ctrl-C that this song was too quick for still means those that follow.
    if (! cancelled && ! isLast && interrupt::hasCome())
    {
        cancelled = true;
        failures.add ("Cancelled.");
    }

    if (cancelled || isLast)
        juce::MessageManager::getInstance()->stopDispatchLoop();
    else
        startNextSong();
}

/** With several songs, a text has to say which it speaks of. */
juce::String BatchRenderer::describe (const juce::String& text) const
{
    if (commandLine.songs.size() == 1)
        return text;

    return commandLine.songs[numStarted - 1].getFileName() + ": " + text;
}

void BatchRenderer::timerCallback()
{
    if (cancelled || ! interrupt::hasCome())
        return;

    cancelled = true;
    display.show (lastFraction, "Cancelling...");
    runner->cancel();
}
