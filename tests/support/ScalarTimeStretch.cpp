#include "support/ScalarTimeStretch.h"

#include <algorithm>
#include <cmath>

using Buffer = juce::AudioBuffer<float>;

static float dotProduct (const float* reference, const float* candidate)
{
    auto sum = 0.0f;

    for (int j = 0; j < 1024; j += 4)
        sum += reference[j] * candidate[j];

    return sum;
}

Buffer scalarTimeStretch (const Buffer& input, double ratio)
{
    const auto n = input.getNumSamples(), channels = input.getNumChannels();
    const auto target = static_cast<int> (std::llround (n * ratio));
    const auto hop = std::max (1, static_cast<int> (std::llround (1024.0 / ratio)));

    Buffer guide (1, n);
    auto* const samples = guide.getWritePointer (0);

    for (int i = 0; i < n; ++i)
    {
        samples[i] = 0.0f;

        for (int c = 0; c < channels; ++c)
            samples[i] += input.getReadPointer (c)[i];

        samples[i] *= 1.0f / static_cast<float> (channels);
    }

    Buffer window (1, 2048);

    for (int i = 0; i < 2048; ++i)
        window.setSample (0, i, 0.5f * (1.0f - std::cos (static_cast<float> (i) * 6.2831855f * 0.00048828125f)));

    Buffer sums (channels + 1, target + 4096); // the last channel holds the sum of the windows
    sums.clear();
    auto read = 0, end = 0;

    for (int k = 0, nominal = 0; k == 0 || (nominal + 2048 <= n && k * 1024 + 2048 <= target + 4096);
         ++k, nominal += hop)
    {
        const auto natural = read + 1024, low = std::max (nominal, 512) - 512;
        const auto high = k > 0 && natural + 1024 <= n ? std::min (nominal + 512, n - 2048) : -1;
        auto best = -1.0e30f;
        read = nominal;

        for (int c = low; c <= high; c += 2)
            if (const auto score = dotProduct (samples + natural, samples + c); score > best)
            {
                best = score;
                read = c;
            }

        for (int c = 0; c <= channels; ++c)
        {
            auto* const sum = sums.getWritePointer (c) + k * 1024;
            const auto* const frame = c < channels ? input.getReadPointer (c) + read : nullptr;

            for (int i = 0; i < 2048; ++i)
                sum[i] += (frame != nullptr ? frame[i] : 1.0f) * window.getReadPointer (0)[i];
        }

        end = k * 1024 + 2048;
    }

    Buffer result (channels, std::max (1, std::min (end, target)));

    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < result.getNumSamples(); ++i)
            result.setSample (c, i, sums.getSample (c, i) / std::max (sums.getSample (channels, i), 0.001f));

    return result;
}
