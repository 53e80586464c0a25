#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** Makes a buffer for whole songs, its samples not yet set.

    Where the system offers large pages on request, the buffer asks for them: touching a song's
    memory for the first time, page by page, would else take longer than stretching it.

    @throws std::bad_alloc  if it cannot be held in memory
*/
juce::AudioBuffer<float> makeLargeBuffer (int numChannels, int numSamples);
