#include "render/Batch.h"

#include "pipeline/SharedMessages.h"
#include "render/ExitStatus.h"
#include "render/Interrupt.h"

#include <iostream>

Batch::Batch (const std::vector<Song>& songsToUse) : songs (songsToUse) {}

/** Adds advice to a message that quotes a worker, if the quotation does not end with advice: uv gives none when the
    disk is full, and a worker that was killed cannot give any. A quotation follows a blank line, and advice ends in a
    full stop.
*/
static juce::String withAdvice (const juce::String& message)
{
    const juce::String blankLine ("\n\n");
    const auto quoted = message.fromFirstOccurrenceOf (blankLine, false, false);

    if (! message.contains (blankLine) || quoted.endsWithChar ('.'))
        return message;

    if (quoted.contains ("No space left on device"))
        return message.trimEnd() + blankLine + "The disk is full: free some space and try again.";

    if (quoted.containsIgnoreCase ("error:"))
        return message;

    return message.trimEnd() + blankLine
           + "The worker ended without saying why. The computer may have run out of memory: close other programs and "
             "try again.";
}

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
        failures.add (describe (withAdvice (message)));

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
