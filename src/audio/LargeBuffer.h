#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** Makes a buffer for a whole song, with uninitialised samples.

    Requests large pages where the system offers them: with small ones, the page faults for a song's memory take
    longer than the stretch.

    @throws std::bad_alloc  if it does not fit into memory
*/
juce::AudioBuffer<float> makeLargeBuffer (int numChannels, int numSamples);
