#include "audio/Resample.h"

#include "support/Signals.h"

#include <gtest/gtest.h>

using signals::Buffer;

TEST (ResampleTest, RoundsTheLengthDownButNotToZeroAndCopiesAtASpeedOfOne)
{
    EXPECT_EQ (stretch::resample (signals::noise (1, 1000), 3.0).getNumSamples(), 333);
    EXPECT_EQ (stretch::resample (signals::noise (1, 1000), 501.0).getNumSamples(), 1);
    EXPECT_EQ (stretch::resample (signals::noise (1, 1), 2.0).getNumSamples(), 1);
    EXPECT_EQ (stretch::resample (signals::noise (2, 44100), 44100.0 / 48000.0).getNumSamples(), 48000);
    EXPECT_EQ (stretch::resample (Buffer (2, 0), 2.0).getNumSamples(), 0);

    const auto input = signals::noise (3, 777);
    EXPECT_TRUE (signals::identical (stretch::resample (input, 1.0 - 0.9e-9), input));
    EXPECT_FALSE (signals::identical (stretch::resample (input, 1.0 - 1.1e-9), input));
}

// Five-point Lagrange interpolation reproduces polynomials of the fourth degree exactly, two samples late.
TEST (ResampleTest, ReproducesQuarticsOnEveryChannel)
{
    const auto quartic = [] (double x) { return ((2e-12 * x - 3e-9) * x + 1e-6) * x * x - 2e-3 * x + 0.3; };
    const auto input = signals::make (2, 1000, [&] (int c, int i) { return (c ? -1.0 : 1.0) * quartic (i); });

    for (const auto speed : { 0.37, 0.91875, 1.0594630943592953, 1.9, 4.0 })
    {
        const auto output = stretch::resample (input, speed);

        for (int i = static_cast<int> (10.0 / speed); i < output.getNumSamples(); ++i)
        {
            ASSERT_NEAR (output.getSample (0, i), quartic (i * speed - 2.0), 2e-6) << speed << " " << i;
            ASSERT_EQ (output.getSample (1, i), -output.getSample (0, i)) << speed << " " << i;
        }
    }
}
