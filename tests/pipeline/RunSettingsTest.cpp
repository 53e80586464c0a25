#include "pipeline/FileInFolder.h"
#include "pipeline/RunChecks.h"
#include "pipeline/SpeedRatio.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cmath>

TEST (PipelineConfig, DefaultsAskForNothing)
{
    const PipelineConfig config;
    EXPECT_FALSE (config.wantsStems() || config.fullSong || config.useUrl || config.autoBpm || config.autoKey);
    EXPECT_EQ (config.bitDepth, 24);
    EXPECT_EQ (config.sampleRate, 0);
    EXPECT_EQ (config.modelName, "htdemucs");
    EXPECT_EQ (static_cast<int> (config.stretchMode), 0);
    EXPECT_EQ (static_cast<int> (config.adjustMode), 0);
    EXPECT_EQ (config.outputDir, juce::File());
}

TEST (SpeedRatio, KeysTakeTheShorterWayAndTheTritoneGoesUp)
{
    for (int from = 0; from < 12; ++from)
        for (int to = 0; to < 12; ++to)
        {
            const auto semitones = speedratio::semitonesBetween (from, to);
            EXPECT_TRUE (-5 <= semitones && semitones <= 6) << from << " to " << to;
            EXPECT_EQ ((from + semitones + 12) % 12, to);
            EXPECT_NEAR (speedratio::fromKeys (from, to), std::pow (2.0, semitones / 12.0), 1e-12);
        }

    EXPECT_EQ (speedratio::semitonesBetween (0, 6), 6);
    EXPECT_EQ (speedratio::semitonesBetween (6, 0), 6);
    EXPECT_EQ (speedratio::semitonesBetween (0, 7), -5);
    EXPECT_EQ (speedratio::semitonesBetween (7, 0), 5);
}

TEST (RunChecks, JudgesTempos)
{
    const auto judge = [] (double from, double to, bool isDetected = false)
    {
        PipelineConfig config;
        config.fromBpm = from;
        config.toBpm = to;
        config.autoBpm = isDetected;
        return runchecks::checkTempos (config);
    };

    EXPECT_EQ (judge (100, 25), "");
    EXPECT_EQ (judge (100, 400), "");
    EXPECT_EQ (judge (100, 24.9), "The BPM ratio is out of range (limited to 0.25x - 4x).");
    EXPECT_EQ (judge (100, 400.1), "The BPM ratio is out of range (limited to 0.25x - 4x).");
    EXPECT_EQ (judge (0, 0), "Enter a target (to) BPM.");
    EXPECT_EQ (judge (0, 0, true), "Enter a target (to) BPM.");
    EXPECT_EQ (judge (0, 120), "Enter a source (from) BPM, or enable Auto to detect it.");
    EXPECT_EQ (judge (0, 120, true), "");
}

TEST (RunChecks, PreparesTheOutputFolder)
{
    const TemporaryFolder folder;
    const auto file = folder.getChild ("file");
    file.create();

    EXPECT_EQ (runchecks::prepareOutputFolder ({}), "Choose a valid output folder.");
    EXPECT_EQ (runchecks::prepareOutputFolder (file), "Choose a valid output folder.");
    EXPECT_EQ (runchecks::prepareOutputFolder (file.getChildFile ("below")),
               "Could not create the output folder:\n" + file.getChildFile ("below").getFullPathName());
    EXPECT_EQ (runchecks::prepareOutputFolder (folder.getChild ("deep/down")), "");
    EXPECT_TRUE (folder.getChild ("deep/down").isDirectory());
    EXPECT_EQ (runchecks::prepareOutputFolder (folder.getChild ("deep")), "");
}

TEST (FileInFolder, StaysInItsFolderWhateverTheName)
{
    const juce::File folder ("/music");

    for (const auto* const name : { "song", "~song", "~", ".hidden", "..two dots", "-dash", "a b" })
        EXPECT_EQ (fileInFolder (folder, name).getFullPathName(), juce::String ("/music/") + name);
}
