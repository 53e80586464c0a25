#pragma once

#include "pipeline/PreparationRunner.h"
#include "render/Batch.h"
#include "render/ProgressDisplay.h"

/** Fetches the packages and the model for links, detection and stems, and shows the progress on standard output. */
class BatchPreparer : public Batch
{
public:
    BatchPreparer();

private:
    void startSong (const Song& song) override;
    void cancelSong() override;
    void finished (bool success, const juce::String& message);

    PreparationRunner runner;
    ProgressDisplay display;
};
