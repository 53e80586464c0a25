#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** Computes the same result as stretch::timeStretch(), in plain loops. It is the bit-exact reference for the tests and
    the baseline for the benchmarks. It does not handle inputs of fewer than 4096 samples or a ratio of 1.
*/
juce::AudioBuffer<float> scalarTimeStretch (const juce::AudioBuffer<float>& input, double ratio);
