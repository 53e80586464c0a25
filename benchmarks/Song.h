#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** What is measured on: a minute of stereo music. */
struct Song
{
    juce::AudioBuffer<float> audio;
    double sampleRate = 0.0;
};

/** A file's audio, repeated or cut so that it lasts a minute.
    @throws std::runtime_error  if the file cannot be read
*/
Song loadMinuteOf (const juce::File& file);
