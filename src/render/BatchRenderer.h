#pragma once

#include "pipeline/PipelineRunner.h"
#include "render/Batch.h"
#include "render/CommandLine.h"
#include "render/ProgressDisplay.h"

/** Renders songs, and shows the progress on standard output. */
class BatchRenderer : public Batch
{
public:
    explicit BatchRenderer (const CommandLine& commandLine);

private:
    void startSong (const Song& song) override;
    void cancelSong() override;
    void runFinished (bool success, const juce::String& message);

    const PipelineConfig& settings;
    ProgressDisplay display;
    std::unique_ptr<PipelineRunner> runner;
    double lastFraction = 0.0;
};
