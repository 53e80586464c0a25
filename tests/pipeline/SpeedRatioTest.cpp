#include "pipeline/SpeedRatio.h"

#include <gtest/gtest.h>

TEST (SpeedRatioTest, TransposesByTheSmallerIntervalAndATritoneUp)
{
    for (int from = 0; from < 12; ++from)
        for (int to = 0; to < 12; ++to)
        {
            const auto semitones = speedratio::semitonesBetween (from, to);
            EXPECT_TRUE (-5 <= semitones && semitones <= 6) << from << " to " << to;
            EXPECT_EQ ((from + semitones + 12) % 12, to);
        }
}
