#pragma once

#include "pipeline/ChildSlot.h"
#include "pipeline/PipelineConfig.h"
#include "pipeline/StemRenderer.h"
#include "pipeline/WorkerOutput.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread of one run, from the source audio to the finished files.

    Set the callbacks, then start the thread. A runner serves one run and is then replaced.
*/
class PipelineRunner : public juce::Thread
{
public:
    explicit PipelineRunner (PipelineConfig config);
    ~PipelineRunner() override = default;

    /** Called on the message thread with a fraction from 0 to 1 and a status text. */
    std::function<void (double, juce::String)> onProgress;

    /** Called on the message thread once, after the last onProgress, with success and the message for
        the user. A cancelled run ends with false and "Cancelled.".
    */
    std::function<void (bool, juce::String)> onFinished;

    bool checksWrites = false; /**< for the StemRenderer */

    /** Asks the run to end and kills its worker. Returns at once, on any thread. */
    void cancel();

    void run() override;

private:
    /** What the stages of a run hand on to each other. */
    struct RunState
    {
        bool downloads = false; /**< decided once: an edit of the link can delete the cached file at any time */
        juce::File uv;          /**< this and scripts are default Files in a run without workers */
        juce::File scripts;
        juce::File tempDir;
        juce::File sourceFile;
        juce::String baseName;
        juce::String statusSuffix;
        double ratio = 1.0;
        std::vector<StemRenderer::NamedFile> stemFiles;
        juce::File outDir;
    };

    void finish (bool success, juce::String message);
    void report (double fraction, const juce::String& text);

    /** Each stage returns false when the run ends there, with the text for the user in message, or
        with message left alone if the run was cancelled.
    */
    bool runPipeline (juce::String& message);
    bool findTools (RunState& state, juce::String& message);
    bool getSource (RunState& state, juce::String& message);
    bool getUrlSource (RunState& state, juce::String& message);
    bool findRatio (RunState& state, juce::String& message);
    bool findTempoRatio (RunState& state, juce::String& message);
    bool findKeyRatio (RunState& state, juce::String& message);
    bool separate (RunState& state, juce::String& message);
    bool makeOutputFolder (RunState& state, juce::String& message);
    bool render (const RunState& state, int& filesWritten, juce::String& message);

    /** Runs one worker to its end, or until the run is cancelled.
        @param args    the executable and its arguments
        @param onLine  called with each line that the worker prints; may be empty
    */
    ScriptResult runScript (const juce::StringArray& args, LineCallback onLine);

    /** Has analyze.py detect what is wanted. What is not wanted is left alone, and key may be null.
        @param key  receives an index into PipelineConfig::keyNames
    */
    bool analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio, bool wantBpm, bool wantKey,
                  double& bpm, int* key, juce::String& message);

    bool detectsBpm() const;
    bool detectsKey() const;

    const PipelineConfig config;
    ChildSlot child;
};
