#include "audio/Resample.h"

#include "audio/LargeBuffer.h"
#include "audio/MemoryLimit.h"

#include <cmath>

namespace stretch
{

juce::AudioBuffer<float> resample (const juce::AudioBuffer<float>& input, double speed)
{
    const auto numSamples = input.getNumSamples();

    if (numSamples == 0 || std::abs (speed - 1.0) < 1e-9)
        return input;

    const auto outputLength = toBufferLength (std::floor (static_cast<double> (numSamples) / speed));
    requireMemoryFor (input.getNumChannels() * (static_cast<double> (numSamples) + outputLength));

    auto output = makeLargeBuffer (input.getNumChannels(), outputLength);

    for (int channel = 0; channel < input.getNumChannels(); ++channel)
    {
        juce::LagrangeInterpolator interpolator;
        interpolator.process (speed, input.getReadPointer (channel), output.getWritePointer (channel), outputLength,
                              numSamples, 0);
    }

    return output;
}

} // namespace stretch
