#pragma once

#include "render/Song.h"

#include <juce_events/juce_events.h>

#include <vector>

/** Works through songs one after the other under a message loop. A song that fails does not stop the rest. */
class Batch : private juce::Timer
{
public:
    /** Runs the message loop until all songs are done, or Ctrl-C has cancelled them.
        @returns the program's exit status
    */
    int run();

protected:
    explicit Batch (const std::vector<Song>& songs);

    /** Starts the work on a song. It calls songFinished when it is done, at once if it cannot be started. */
    virtual void startSong (const Song& song) = 0;

    /** Cancels that work, once. It still calls songFinished. */
    virtual void cancelSong() = 0;

    /** @param message  why the song has failed; nothing if it has not */
    void songFinished (const juce::String& message);

    /** With several songs, a text has to say which it speaks of. */
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
