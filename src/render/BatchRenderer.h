#pragma once

#include "pipeline/PipelineRunner.h"
#include "render/CommandLine.h"
#include "render/ProgressDisplay.h"

/** Renders songs one after the other under a message loop. A song that fails does not stop the rest. */
class BatchRenderer : private juce::Timer
{
public:
    explicit BatchRenderer (const CommandLine& commandLine);

    /** Runs the message loop until all songs are done, or Ctrl-C has cancelled them.
        @returns the program's exit status
    */
    int run();

private:
    void startNextSong();
    void songFinished (bool success, const juce::String& message);
    juce::String describe (const juce::String& text) const;
    void timerCallback() override;

    const CommandLine& commandLine;
    ProgressDisplay display;
    std::unique_ptr<PipelineRunner> runner;
    size_t numStarted = 0;
    double lastFraction = 0.0;
    juce::StringArray failures;
    bool cancelled = false;
};
