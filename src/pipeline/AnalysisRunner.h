#pragma once

#include "pipeline/ChildSlot.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread that detects a song's tempo and key, downloading the song first if it has to.

    Set the callback, then start the thread. A runner serves one analysis and is then replaced.
*/
class AnalysisRunner : public juce::Thread
{
public:
    /** Analyses a file that is there already. */
    explicit AnalysisRunner (juce::File audioFile);

    /** Downloads first, into the folder, which is made if it is not there. The download is never deleted here. */
    AnalysisRunner (juce::String url, juce::File downloadFolder);

    ~AnalysisRunner() override = default;

    /** Called on the message thread, once, unless the analysis is cancelled: with whether all went well, the tempo in
        BPM, the key as an index into PipelineConfig::keyNames, the file that was downloaded (a default File if none
        was; it comes even if the analysis failed after it) and the text for the user if something failed.
    */
    std::function<void (bool, double, int, juce::File, juce::String)> onFinished;

    /** Asks the analysis to end and kills its worker. Returns at once, on any thread. */
    void cancel();

    void run() override;

private:
    /** What onFinished is called with. */
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
        @param output  receives all that it prints, as it stands
        @returns whether the worker succeeded and no cancellation was asked for
    */
    bool runScriptCapture (const juce::StringArray& args, juce::String& output);

    const juce::File audioFile;
    const juce::String url;
    const juce::File downloadFolder;
    ChildSlot child;
};
