#include "audio/TimeStretch.h"

#include "audio/AudioFile.h"
#include "audio/Resample.h"
#include "support/ScalarTimeStretch.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <limits>

using signals::Buffer;

static Buffer loadMusic()
{
    juce::AudioFormatManager formats;
    audiofile::registerFormats (formats);
    return audiofile::readWhole (*audiofile::open (formats, juce::File (KELVANE_DEMO_SONG)));
}

static Buffer noiseWith (float value)
{
    auto buffer = signals::noise (2, 40000);
    for (int i = 9000; i < 40000; i += 7001)
        buffer.setSample (i % 2, i, value);
    return buffer;
}

TEST (TimeStretchTest, CopiesAtARatioOfOneAndResamplesShortInput)
{
    const auto input = signals::noise (2, 4096), shortInput = signals::noise (2, 4095);
    EXPECT_TRUE (signals::identical (stretch::timeStretch (input, 1.0 + 0.9e-9), input));
    EXPECT_TRUE (
        signals::identical (stretch::timeStretch (shortInput, 1.5), stretch::resample (shortInput, 1.0 / 1.5)));
    EXPECT_EQ (stretch::timeStretch (Buffer (2, 0), 2.0).getNumSamples(), 0);

    for (const auto ratio : { 0.0001, 1.0 + 1.1e-9, 1.5, 700.0 })
        EXPECT_TRUE (signals::identical (stretch::timeStretch (input, ratio), scalarTimeStretch (input, ratio)))
            << ratio;
}

TEST (TimeStretchTest, RefusesAResultLongerThanABufferCanBe)
{
    EXPECT_THROW (stretch::timeStretch (signals::noise (1, 8192), 300'000.0), std::bad_alloc);
}

TEST (TimeStretchTest, MatchesPlainLoopsBitForBitOnEveryBackend)
{
#if JUCE_64BIT && (JUCE_INTEL || JUCE_ARM)
    EXPECT_STRNE (stretch::fastestSearchBackend().name, "plain");
#endif

    using Limits = std::numeric_limits<float>;
    const auto periodic = [] (double loudness)
    { return signals::make (2, 30000, [=] (int c, int i) { return loudness * ((i * 131 + c) % 977 - 488); }); };

    const std::pair<const char*, Buffer> inputs[] {
        { "music", loadMusic() },
        { "noise", signals::noise (2, 100001) },
        { "six channels", signals::noise (6, 30011) },
        { "one channel", signals::noise (1, 5000) },
        { "low sine",
          signals::make (2, 60000, [] (int, int i) { return 0.5 * std::sin (6.283185307179586 / 882.0 * i); }) },
        { "silence", signals::make (2, 30000, [] (int, int) { return 0.0f; }) },
        { "negative zeros", signals::make (2, 30000, [] (int, int) { return -0.0f; }) },
        { "opposite channels",
          signals::make (2, 30000, [] (int c, int i) { return (c ? 1 : -1) * (i * 37 % 101) * 0.01; }) },
        { "ties", signals::make (1, 30000, [] (int, int i) { return i % 64 == 0 ? 0.5 : 0.0; }) },
        { "constant", signals::make (1, 30000, [] (int, int) { return 0.25; }) },
        { "quiet", periodic (1e-20) },
        { "loud", periodic (1e17) },
        { "too loud", periodic (1e30) },
        { "NaN", noiseWith (Limits::quiet_NaN()) },
        { "infinity", noiseWith (Limits::infinity()) },
        { "negative infinity", noiseWith (-Limits::infinity()) },
    };

    for (const auto& [name, input] : inputs)
        for (const auto ratio : { 0.25, 0.5, 0.8, 0.97, 1.003, 1.25, 2.0, 4.0 })
        {
            const auto expected = scalarTimeStretch (input, ratio);

            for (const auto& backend : stretch::availableSearchBackends())
                EXPECT_TRUE (signals::identical (stretch::timeStretch (input, ratio, backend), expected))
                    << name << ", ratio " << ratio << ", " << backend.name;
        }
}
