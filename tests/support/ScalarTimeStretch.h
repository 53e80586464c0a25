#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** The same stretch in plain loops, as the bit-exact reference of the tests and the baseline of the benchmarks. It does
    not handle inputs of fewer than 4096 samples or ratios of 1.
*/
juce::AudioBuffer<float> scalarTimeStretch (const juce::AudioBuffer<float>& input, double ratio);
