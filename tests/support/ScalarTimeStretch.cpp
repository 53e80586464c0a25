#include "support/ScalarTimeStretch.h"

#include <algorithm>
#include <cmath>
#include <vector>

static float dotProduct (const std::vector<float>& guide, int reference, int candidate)
{
    auto sum = 0.0f;

    for (int j = 0; j < 256; ++j)
        sum += guide[static_cast<size_t> (reference + 4 * j)] * guide[static_cast<size_t> (candidate + 4 * j)];

    return sum;
}

juce::AudioBuffer<float> scalarTimeStretch (const juce::AudioBuffer<float>& input, double ratio)
{
    const auto n = input.getNumSamples();
    const auto channels = input.getNumChannels();
    const auto target = static_cast<int> (std::llround (n * ratio));
    const auto hop = std::max (1, static_cast<int> (std::llround (1024.0 / ratio)));

    std::vector<float> guide (static_cast<size_t> (n));

    for (int i = 0; i < n; ++i)
    {
        for (int c = 0; c < channels; ++c)
            guide[static_cast<size_t> (i)] += input.getSample (c, i);

        guide[static_cast<size_t> (i)] *= 1.0f / static_cast<float> (channels);
    }

    std::vector<float> window (2048);

    for (int i = 0; i < 2048; ++i)
        window[static_cast<size_t> (i)] =
            0.5f * (1.0f - std::cos (static_cast<float> (i) * 6.2831855f * 0.00048828125f));

    juce::AudioBuffer<float> sums (channels, target + 4096);
    sums.clear();
    std::vector<float> windowSums (static_cast<size_t> (target + 4096));
    auto previous = 0;
    auto end = 0;

    for (int k = 0, nominal = 0; k == 0 || (nominal + 2048 <= n && k * 1024 + 2048 <= target + 4096);
         ++k, nominal += hop)
    {
        auto read = k == 0 ? 0 : nominal;
        const auto natural = previous + 1024;

        if (k > 0 && natural + 1024 <= n)
        {
            auto best = -1.0e30f;

            for (int c = std::max (nominal, 512) - 512; c <= std::min (nominal + 512, n - 2048); c += 2)
            {
                const auto score = dotProduct (guide, natural, c);

                if (score > best)
                {
                    best = score;
                    read = c;
                }
            }
        }

        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < 2048; ++i)
                sums.getWritePointer (c)[k * 1024 + i] +=
                    input.getReadPointer (c)[read + i] * window[static_cast<size_t> (i)];

        for (int i = 0; i < 2048; ++i)
            windowSums[static_cast<size_t> (k * 1024 + i)] += window[static_cast<size_t> (i)];

        previous = read;
        end = k * 1024 + 2048;
    }

    juce::AudioBuffer<float> result (channels, std::max (1, std::min (end, target)));

    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < result.getNumSamples(); ++i)
            result.setSample (c, i, sums.getSample (c, i) / std::max (windowSums[static_cast<size_t> (i)], 0.001f));

    return result;
}
