#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

/** The stretch once more, with the plainest loops that do the job: what the fast one is checked
    against, to the bit, and measured against. Inputs of fewer than 4096 samples and ratios of 1 are
    outside its scope.
*/
juce::AudioBuffer<float> scalarTimeStretch (const juce::AudioBuffer<float>& input, double ratio);
