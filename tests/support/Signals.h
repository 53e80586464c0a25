#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include <cmath>
#include <cstring>

/** Test signals and comparisons. */
namespace signals
{

using Buffer = juce::AudioBuffer<float>;

/** @returns a buffer whose samples are a function of channel and index */
template <typename Function>
Buffer make (int numChannels, int numSamples, Function&& sampleAt)
{
    Buffer buffer (numChannels, numSamples);

    for (int channel = 0; channel < numChannels; ++channel)
        for (int i = 0; i < numSamples; ++i)
            buffer.setSample (channel, i, static_cast<float> (sampleAt (channel, i)));

    return buffer;
}

inline Buffer noise (int numChannels, int numSamples, juce::int64 seed = 1)
{
    juce::Random random (seed);
    return make (numChannels, numSamples, [&] (int, int) { return random.nextFloat() * 2.0f - 1.0f; });
}

/** Compares bits, so that NaN equals itself and 0 differs from -0. */
inline bool identical (const Buffer& a, const Buffer& b)
{
    if (a.getNumChannels() != b.getNumChannels() || a.getNumSamples() != b.getNumSamples())
        return false;

    const auto numBytes = sizeof (float) * static_cast<size_t> (a.getNumSamples());

    for (int channel = 0; channel < a.getNumChannels(); ++channel)
        if (std::memcmp (a.getReadPointer (channel), b.getReadPointer (channel), numBytes) != 0)
            return false;

    return true;
}

} // namespace signals
