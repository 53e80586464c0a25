// The stages of a run that start a worker.

#include "pipeline/PipelineRunner.h"
#include "pipeline/PythonBridge.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/WorkerProcess.h"
#include "pipeline/WorkerProgress.h"
#include "pipeline/Workers.h"

bool PipelineRunner::detectsBpm() const
{
    return config.adjustMode == AdjustMode::Bpm && config.autoBpm;
}

bool PipelineRunner::detectsKey() const
{
    return config.adjustMode == AdjustMode::Key && config.autoKey;
}

bool PipelineRunner::findTools (RunState& state, juce::String& message)
{
    state.downloads = config.useUrl && ! config.cachedAudio.existsAsFile();

    if (! state.downloads && ! config.wantsStems() && ! detectsBpm() && ! detectsKey())
        return true;

    return PythonBridge::findTools (state.uv, state.scripts, message);
}

bool PipelineRunner::getUrlSource (RunState& state, juce::String& message)
{
    if (! state.downloads)
    {
        report (0.05, "Reusing audio downloaded during analysis...");
        state.sourceFile = config.cachedAudio;
        return true;
    }

    report (0.02, "Downloading YouTube audio (first run may take longer while uv sets up)...");

    const auto result = runScript (
        workers::downloadCommand (state.uv, state.scripts, config.url, state.tempDir.getChildFile ("download")),
        [this] (const juce::String& line)
        {
            if (const auto status = workerprogress::readDownloadLine (line))
                report (0.05, "Downloading... " + *status);
        });

    if (threadShouldExit())
        return false;

    state.sourceFile = workers::findDownload (result.output);

    if (result.succeeded() && state.sourceFile != juce::File())
        return true;

    message = messages::withQuote (messages::downloadFailed, result.output);
    return false;
}

bool PipelineRunner::analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio, bool wantBpm,
                              bool wantKey, double& bpm, int* key, juce::String& message)
{
    const auto result = runScript (workers::analysisCommand (uv, scripts, audio, wantBpm, wantKey), {});

    if (threadShouldExit())
        return false;

    const auto detection = workers::findDetection (result.output);

    if (! result.succeeded() || ! detection)
    {
        message = messages::withQuote ("Auto-detection failed.", result.output);
        return false;
    }

    if (wantBpm)
        bpm = detection->bpm;

    if (wantKey && key != nullptr)
        *key = detection->key;

    return true;
}

bool PipelineRunner::separate (RunState& state, juce::String& message)
{
    if (! config.wantsStems())
        return true;

    juce::StringArray names;

    for (size_t i = 0; i < PipelineConfig::numStems; ++i)
        if (config.stems[i])
            names.add (PipelineConfig::stemNames[i]);

    const auto folder = state.tempDir.getChildFile ("stems");
    folder.createDirectory();

    report (0.16, "Separating stems with " + config.modelName + " (first run downloads the model)...");

    const auto showLine = [this, fraction = 0.16] (const juce::String& line) mutable
    {
        if (const auto percentage = workerprogress::readBarLine (line))
        {
            fraction = *percentage * 0.5 / 100.0 + 0.16;
            report (fraction, "Separating stems... " + juce::String (*percentage) + "%");
        }
        else if (const auto status = workerprogress::readSetupLine (line))
        {
            report (fraction, *status);
        }
    };

    const auto result = runScript (
        workers::separationCommand (state.uv, state.scripts, state.sourceFile, folder, config.modelName, names),
        showLine);

    if (threadShouldExit())
        return false;

    if (! result.succeeded())
    {
        message = messages::withQuote ("Stem separation failed.", result.output);
        return false;
    }

    for (const auto& name : names)
    {
        const auto file = folder.getChildFile (name + ".wav");

        if (! file.existsAsFile())
        {
            message = messages::withQuote ("Separation did not produce the '" + name + "' stem.", result.output);
            return false;
        }

        state.entries.push_back ({ name, file });
    }

    return true;
}

ScriptResult PipelineRunner::runScript (const juce::StringArray& args, LineCallback onLine)
{
    return runWorker (child, args, onLine, [this] { return threadShouldExit(); });
}
