#include "pipeline/RunChecks.h"

#include "pipeline/SpeedRatio.h"

#include <gtest/gtest.h>

TEST (RunChecksTest, RefusesTemposThatAreMissingOrOutOfRange)
{
    const auto check = [] (double from, double to, bool isDetected = false)
    {
        PipelineConfig config;
        config.fromBpm = from;
        config.toBpm = to;
        config.autoBpm = isDetected;
        return runchecks::checkTempos (config);
    };

    EXPECT_EQ (check (100, 25), "");
    EXPECT_EQ (check (100, 400), "");
    EXPECT_EQ (check (100, 24.9), "The BPM ratio is out of range (limited to 0.25x - 4x).");
    EXPECT_EQ (check (100, 400.1), "The BPM ratio is out of range (limited to 0.25x - 4x).");
    EXPECT_EQ (check (0, 0, true), "Enter a target (to) BPM.");
    EXPECT_EQ (check (0, 120), "Enter a source (from) BPM, or enable Auto to detect it.");
    EXPECT_EQ (check (0, 120, true), "");
}

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
