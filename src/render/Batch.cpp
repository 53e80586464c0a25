#include "render/Batch.h"

#include "pipeline/UserMessages.h"
#include "render/ExitStatus.h"
#include "render/Interrupt.h"

#include <iostream>

Batch::Batch (const std::vector<Song>& songsToUse) : songs (songsToUse) {}

int Batch::run()
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

void Batch::startNextSong()
{
    startSong (songs[numStarted++]);
}

void Batch::songFinished (const juce::String& message)
{
    const auto isLast = numStarted == songs.size();
    const auto hasFailed = message.isNotEmpty();

    // Ctrl-C also reaches the workers, so a song can fail because of it before the timer notices. If the song
    // finishes first, Ctrl-C still cancels the songs that follow.
    if (interrupt::hasCome() && (hasFailed || ! isLast))
        cancelled = true;

    if (cancelled)
        failures.add (describe (messages::cancelled));
    else if (hasFailed)
        failures.add (describe (message));

    if (cancelled || isLast)
        juce::MessageManager::getInstance()->stopDispatchLoop();
    else
        startNextSong();
}

juce::String Batch::describe (const juce::String& text) const
{
    return songs.size() == 1 ? text : getSong().getName() + ": " + text;
}

bool Batch::isCancelled() const
{
    return cancelled || interrupt::hasCome();
}

void Batch::timerCallback()
{
    if (cancelled || ! interrupt::hasCome())
        return;

    cancelled = true;
    cancelSong();
}
