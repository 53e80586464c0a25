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

TEST (TimeStretchTest, LimitsTheLengthByFramesAndTarget)
{
    struct Case
    {
        int numSamples;
        double ratio;
        int expected;
    };

    const Case cases[] { { 4096, 2.0, 6144 },      { 4096, 1.5, 4096 }, { 441000, 2.0, 879616 },
                         { 441000, 4.0, 1757184 }, { 8192, 0.5, 4096 }, { 441000, 0.25, 110250 },
                         { 4096, 0.25, 1024 },     { 4096, 0.0001, 1 }, { 4096, 700.0, 2048 * 1024 + 2048 } };

    for (const auto& c : cases)
        EXPECT_EQ (stretch::timeStretch (Buffer (signals::noise (2, c.numSamples)), c.ratio).getNumSamples(),
                   c.expected)
            << c.numSamples << " samples, ratio " << c.ratio;
}

TEST (TimeStretchTest, CopiesAtARatioOfOneAndResamplesShortInput)
{
    const auto input = signals::noise (2, 4096), shortInput = signals::noise (2, 4095);
    EXPECT_TRUE (signals::identical (stretch::timeStretch (input, 1.0 + 0.9e-9), input));
    EXPECT_FALSE (signals::identical (stretch::timeStretch (input, 1.0 + 1.1e-9), input));
    EXPECT_TRUE (signals::identical (stretch::timeStretch (input, 1.5), scalarTimeStretch (input, 1.5)));
    EXPECT_TRUE (
        signals::identical (stretch::timeStretch (shortInput, 1.5), stretch::resample (shortInput, 1.0 / 1.5)));
    EXPECT_EQ (stretch::timeStretch (Buffer (2, 0), 2.0).getNumSamples(), 0);
}

TEST (TimeStretchTest, GivesTheBitsOfPlainLoopsOnEveryBackend)
{
#if JUCE_64BIT && (JUCE_INTEL || JUCE_ARM)
    EXPECT_STRNE (stretch::fastestSearchBackend().name, "plain");
#endif

    constexpr auto nan = std::numeric_limits<float>::quiet_NaN();
    constexpr auto infinity = std::numeric_limits<float>::infinity();
    const auto spoilt = [] (float value)
    {
        auto buffer = signals::noise (2, 40000);
        for (int i = 9000; i < 40000; i += 7001)
            buffer.setSample (i % 2, i, value);
        return buffer;
    };

    const std::pair<const char*, Buffer> inputs[] {
        { "music", loadMusic() },
        { "noise", signals::noise (2, 100001) },
        { "six channels", signals::noise (6, 30011) },
        { "one channel", signals::noise (1, 5000) },
        { "low sine", signals::sine (2, 60000, 50.0 / 44100.0) },
        { "silence", signals::make (2, 30000, [] (int, int) { return 0.0f; }) },
        { "negative zeros", signals::make (2, 30000, [] (int, int) { return -0.0f; }) },
        { "opposite channels",
          signals::make (2, 30000, [] (int c, int i) { return (c ? 1 : -1) * ((i * 37) % 101) * 0.01; }) },
        { "ties", signals::make (1, 30000, [] (int, int i) { return i % 64 == 0 ? 0.5 : 0.0; }) },
        { "constant", signals::make (1, 30000, [] (int, int) { return 0.25; }) },
        { "quiet", signals::make (2, 30000, [] (int c, int i) { return 1e-20 * ((i * 131 + c) % 977 - 488); }) },
        { "loud", signals::make (2, 30000, [] (int c, int i) { return 1e17 * ((i * 131 + c) % 977 - 488); }) },
        { "too loud", signals::make (2, 30000, [] (int c, int i) { return 1e30 * ((i * 131 + c) % 977 - 488); }) },
        { "NaN", spoilt (nan) },
        { "infinity", spoilt (infinity) },
        { "both infinities", spoilt (-infinity) },
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

TEST (TimeStretchTest, KeepsLevelAndChannelsAligned)
{
    const auto result =
        stretch::timeStretch (signals::make (2, 50000, [] (int c, int) { return c ? -0.5 : 0.5; }), 1.3);

    EXPECT_EQ (result.getSample (0, 0), 0.0f);

    for (int i = 21; i < result.getNumSamples() - 21; ++i)
    {
        ASSERT_NEAR (result.getSample (0, i), 0.5f, 1e-6f) << i;
        ASSERT_EQ (result.getSample (1, i), -result.getSample (0, i)) << i;
    }
}
