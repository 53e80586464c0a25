#pragma once

#include "pipeline/ChildSlot.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread that detects a song's tempo and key, and downloads the song first if necessary.

    Set the callback, then start the thread. Each analysis needs a new runner.
*/
class AnalysisRunner : public juce::Thread
{
public:
    /** Analyses an existing file. */
    explicit AnalysisRunner (juce::File audioFile);

    /** Downloads the song into the folder first. Creates the folder, and never deletes the download. */
    AnalysisRunner (juce::String url, juce::File downloadFolder);

    ~AnalysisRunner() override = default;

    /** Called once on the message thread, unless the analysis is cancelled. The arguments are: success; the tempo in
        BPM; the key as an index into PipelineConfig::keyNames; the downloaded file, even if the detection failed (a
        default File if nothing was downloaded); and the message for the user after a failure.
    */
    std::function<void (bool, double, int, juce::File, juce::String)> onFinished;

    /** Asks the analysis to end and kills its worker. Does not wait. May be called on any thread. */
    void cancel();

    void run() override;

private:
    /** The arguments of onFinished. */
    struct Outcome
    {
        bool success = false;
        double bpm = 0.0;
        int key = 0;
        juce::File download;
        juce::String error;
    };

    Outcome findOutcome();
    void deliver (const Outcome& outcome);
    bool download (const juce::File& uv, const juce::File& scripts, Outcome& outcome);
    void analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio, Outcome& outcome);

    /** Runs one worker to its end.
        @param output  receives everything that the worker prints, unchanged
        @returns true if the worker succeeded and the analysis was not cancelled
    */
    bool runScriptCapture (const juce::StringArray& args, juce::String& output);

    const juce::File audioFile;
    const juce::String url;
    const juce::File downloadFolder;
    ChildSlot child;
};
