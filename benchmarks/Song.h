#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** The benchmarks' input: a minute of music. */
struct Song
{
    juce::AudioBuffer<float> audio;
    double sampleRate = 0.0;
};

/** Loads a file, repeated or cut to last one minute.
    @throws std::runtime_error  if the file cannot be read
*/
Song loadMinuteOf (const juce::File& file);
