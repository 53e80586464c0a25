#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

namespace stretch
{

/** Changes the speed of audio, and thereby duration and pitch together, like a tape machine.

    Each channel passes through a new juce::LagrangeInterpolator. No low-pass filter precedes it, so a speed above 1 can
    cause aliasing. The interpolator's latency is not compensated.

    @param input  any number of channels and samples; read only
    @param speed  input samples consumed per output sample, above 0: 2.0 halves the length and raises
                  the pitch by an octave

    @returns a buffer of the input's channels and floor (samples / speed) samples, at least one. An
             empty input, or a speed within 1e-9 of 1, gives a copy of the input.

    @throws std::bad_alloc  if the result cannot be held in memory
*/
juce::AudioBuffer<float> resample (const juce::AudioBuffer<float>& input, double speed);

} // namespace stretch
