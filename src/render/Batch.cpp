#include "render/Batch.h"

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

    // A Ctrl-C reaches the workers too, so a song can fail of it before it has been noticed here. And one
    // that this song was too quick for still means those that follow.
    if (interrupt::hasCome() && (hasFailed || ! isLast))
        cancelled = true;

    if (cancelled)
        failures.add (describe ("Cancelled."));
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
