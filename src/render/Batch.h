#pragma once

#include "render/Song.h"

#include <juce_events/juce_events.h>

#include <vector>

/** Processes songs one after the other under a message loop. A failed song does not stop the others. */
class Batch : private juce::Timer
{
public:
    /** Runs the message loop until all songs are done or Ctrl-C cancels them.
        @returns the program's exit status
    */
    int run();

protected:
    explicit Batch (const std::vector<Song>& songs);

    /** Starts the work on a song. The work ends with a call to songFinished(), even if it cannot start. */
    virtual void startSong (const Song& song) = 0;

    /** Cancels the work on the current song, which still ends with a call to songFinished(). Called at most once. */
    virtual void cancelSong() = 0;

    /** Ends the work on the current song, and starts the next one unless this was the last or the batch is cancelled.
        @param message  the reason for a failure; empty after a success
    */
    void songFinished (const juce::String& message);

    /** @returns the text, preceded by the current song's name if there are several songs */
    juce::String describe (const juce::String& text) const;

    const Song& getSong() const { return songs[numStarted - 1]; }
    bool isCancelled() const;

private:
    void startNextSong();
    void timerCallback() override;

    const std::vector<Song>& songs;
    size_t numStarted = 0;
    juce::StringArray failures;
    bool cancelled = false;
};
