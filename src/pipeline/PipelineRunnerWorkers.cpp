// The stages of a run that start a worker.

#include "pipeline/Detection.h"
#include "pipeline/PipelineRunner.h"
#include "pipeline/PythonBridge.h"
#include "pipeline/Utf8.h"
#include "pipeline/WorkerProgress.h"

#include <array>
#include <string_view>

bool PipelineRunner::needsDownload() const
{
    return config.useUrl && ! config.cachedAudio.existsAsFile();
}

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
    if (! needsDownload() && ! config.wantsStems() && ! detectsBpm() && ! detectsKey())
        return true;

    state.uv = PythonBridge::findUv();

    if (state.uv == juce::File())
    {
        message = PythonBridge::uvNotFound;
        return false;
    }

    state.scripts = PythonBridge::scriptsDir();

    if (state.scripts == juce::File())
    {
        message = PythonBridge::scriptsNotFound;
        return false;
    }

    return true;
}

bool PipelineRunner::getUrlSource (RunState& state, juce::String& message)
{
    if (! needsDownload())
    {
        report (0.05, "Reusing audio downloaded during analysis...");
        state.sourceFile = config.cachedAudio;
        return true;
    }

    report (0.02, "Downloading YouTube audio (first run may take longer while uv sets up)...");

    const auto result = runScript (
        PythonBridge::makeCommand (state.uv, state.scripts, "yt2wav.py",
                                   { config.url, state.tempDir.getChildFile ("download").getFullPathName() }),
        [this] (const juce::String& line)
        {
            if (const auto status = workerprogress::readDownloadLine (line))
                report (0.05, "Downloading... " + *status);
        });

    if (threadShouldExit())
        return false;

    state.sourceFile = findFile (result.output, "WAV_PATH::");

    if (result.succeeded() && state.sourceFile != juce::File())
        return true;

    message = downloadFailedText + tailOf (result.output, maxQuotedChars);
    return false;
}

bool PipelineRunner::analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio, bool wantBpm,
                              bool wantKey, double& bpm, int* key, juce::String& message)
{
    juce::StringArray arguments { audio.getFullPathName() };

    if (wantBpm)
        arguments.add ("--bpm");

    if (wantKey)
        arguments.add ("--key");

    const auto result = runScript (PythonBridge::makeCommand (uv, scripts, "analyze.py", arguments), {});

    if (threadShouldExit())
        return false;

    const auto value = findMarker (result.output, "RESULT::");

    if (! result.succeeded() || value.isEmpty())
    {
        message = "Auto-detection failed.\n\n" + tailOf (result.output, maxQuotedChars);
        return false;
    }

    const auto detection = Detection::fromJson (value);

    if (wantBpm)
        bpm = detection.bpm;

    if (wantKey && key != nullptr)
        *key = detection.key;

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

    const auto result = runScript (
        PythonBridge::makeCommand (state.uv, state.scripts, "separate.py",
                                   { state.sourceFile.getFullPathName(), folder.getFullPathName(), "--model",
                                     config.modelName, "--stems", names.joinIntoString (",") }),
        [this] (const juce::String& line)
        {
            if (const auto percentage = workerprogress::readSeparationLine (line))
                report (*percentage * 0.5 / 100.0 + 0.16, "Separating stems... " + juce::String (*percentage) + "%");
        });

    if (threadShouldExit())
        return false;

    if (! result.succeeded())
    {
        message = "Stem separation failed.\n\n" + tailOf (result.output, maxQuotedChars);
        return false;
    }

    for (const auto& name : names)
    {
        const auto file = folder.getChildFile (name + ".wav");

        if (! file.existsAsFile())
        {
            message =
                "Separation did not produce the '" + name + "' stem.\n\n" + tailOf (result.output, maxQuotedChars);
            return false;
        }

        state.stemFiles.emplace_back (name, file);
    }

    return true;
}

ScriptResult PipelineRunner::runScript (const juce::StringArray& args, LineCallback onLine)
{
    ScriptResult result;
    auto* const process = child.start (args);

    if (process == nullptr)
        return result;

    result.started = true;
    std::string pending, lines;
    std::array<char, 8192> buffer;

    const auto readOnce = [&]
    {
        const auto numBytes = process->readProcessOutput (buffer.data(), static_cast<int> (buffer.size()));

        if (numBytes < 1)
            return false;

        const std::string_view bytes (buffer.data(), static_cast<size_t> (numBytes));
        pending.append (bytes);

        // A line can be long, and is not to be looked through again for each block of it.
        if (bytes.find_first_of ("\n\r") != std::string_view::npos)
            splitLines (pending, lines, onLine, false);

        return true;
    };

    while (process->isRunning() && ! threadShouldExit())
        readOnce();

    if (! threadShouldExit())
    {
        while (readOnce())
        {
        }

        splitLines (pending, lines, onLine, true);
        result.exitCode = static_cast<int> (process->getExitCode());
    }

    result.output = decodeUtf8 (lines);

    // A cancel that came before the process was started has not reached it.
    if (threadShouldExit())
        child.kill();

    child.empty();
    return result;
}
