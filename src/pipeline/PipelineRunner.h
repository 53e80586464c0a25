#pragma once

#include "pipeline/ChildSlot.h"
#include "pipeline/PipelineConfig.h"
#include "pipeline/StemRenderer.h"
#include "pipeline/WorkerOutput.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread that carries out one run, from the source audio to the finished files.

    Set the callbacks, then start the thread. Each run needs a new runner.
*/
class PipelineRunner : public juce::Thread
{
public:
    explicit PipelineRunner (PipelineConfig config);
    ~PipelineRunner() override = default;

    /** Called on the message thread with a fraction from 0 to 1 and a status text. */
    std::function<void (double, juce::String)> onProgress;

    /** Called once on the message thread, after the last onProgress, with success and the message for the user. A
        cancelled run ends with false and messages::cancelled.
    */
    std::function<void (bool, juce::String)> onFinished;

    bool checksWrites = false; /**< passed on to the StemRenderer */

    /** Asks the run to end and kills its worker. Does not wait. May be called on any thread. */
    void cancel();

    void run() override;

private:
    /** The results that each stage of a run leaves for the next ones. */
    struct RunState
    {
        bool downloads = false; /**< decided once, because the cached file is deleted when the link is edited */
        juce::File uv;          /**< a default File in a run without workers */
        juce::File scripts;     /**< likewise */
        juce::File tempDir;
        juce::File sourceFile;
        juce::String baseName;
        juce::String statusSuffix;
        double ratio = 1.0;
        std::vector<StemRenderer::Entry> entries;
        juce::File outDir;
    };

    void finish (bool success, juce::String message);
    void report (double fraction, const juce::String& text);

    /** Each stage returns false if the run ends there. It then sets message to the text for the user, unless the run
        was cancelled.
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

    /** Runs one worker until it ends or the run is cancelled.
        @param args    the executable and its arguments
        @param onLine  called with each line that the worker prints; may be empty
    */
    ScriptResult runScript (const juce::StringArray& args, LineCallback onLine);

    /** Detects the tempo, the key or both. Leaves a result that is not wanted unchanged.
        @param bpm  receives the tempo in BPM
        @param key  receives an index into PipelineConfig::keyNames; may be null
    */
    bool analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio, bool wantBpm, bool wantKey,
                  double& bpm, int* key, juce::String& message);

    bool detectsBpm() const;
    bool detectsKey() const;

    const PipelineConfig config;
    ChildSlot child;
};
