#pragma once

#include "pipeline/AnalysisRunner.h"
#include "render/Batch.h"

/** Detects the tempo and key of songs, and prints a line of JSON for each on standard output. */
class BatchAnalyzer : public Batch
{
public:
    explicit BatchAnalyzer (const std::vector<Song>& songs);

private:
    void startSong (const Song& song) override;
    void cancelSong() override;
    void analysisFinished (const juce::String& message);

    std::unique_ptr<AnalysisRunner> runner;
    juce::File downloadFolder;
};
