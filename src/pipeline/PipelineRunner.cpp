#include "pipeline/PipelineRunner.h"

#include "pipeline/FileInFolder.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/SpeedRatio.h"
#include "pipeline/TemporaryFolder.h"

PipelineRunner::PipelineRunner (PipelineConfig configToUse) : juce::Thread ("Kelvane"), config (std::move (configToUse))
{
}

void PipelineRunner::cancel()
{
    signalThreadShouldExit();
    child.kill();
}

void PipelineRunner::run()
{
    auto success = false;
    juce::String message = messages::endedEarly;

    // The guard reports after an exception too: without a completion the caller would wait forever.
    const juce::ScopeGuard completion { [&] { finish (success, message); } };

    try
    {
        juce::String text;
        success = runPipeline (text);
        message = text;
    }
    catch (const std::exception& e)
    {
        message = juce::String ("Unexpected error: ") + e.what();
    }
}

void PipelineRunner::finish (bool success, juce::String message)
{
    // Checked last, so that a cancellation after the last file still counts.
    if (threadShouldExit())
    {
        message = messages::cancelled;
        success = false;
    }

    juce::MessageManager::callAsync ([callback = onFinished, success, message]
                                     { juce::NullCheckedInvocation::invoke (callback, success, message); });
}

void PipelineRunner::report (double fraction, const juce::String& text)
{
    juce::MessageManager::callAsync ([callback = onProgress, fraction, text]
                                     { juce::NullCheckedInvocation::invoke (callback, fraction, text); });
}

bool PipelineRunner::runPipeline (juce::String& message)
{
    RunState state;
    auto filesWritten = 0;

    if (! findTools (state, message))
        return false;

    state.tempDir = newTemporaryFolder();
    state.tempDir.createDirectory();

    if (! getSource (state, message))
        return false;

    state.baseName = state.sourceFile.getFileNameWithoutExtension();

    if (! findRatio (state, message) || ! separate (state, message))
        return false;

    if (config.fullSong)
        state.entries.push_back ({ "full mix", state.sourceFile });

    if (! makeOutputFolder (state, message) || ! render (state, filesWritten, message))
        return false;

    state.tempDir.deleteRecursively();
    report (1.0, "Done");
    message = "Wrote " + juce::String (filesWritten) + " file(s) to:\n" + state.outDir.getFullPathName();
    return true;
}

bool PipelineRunner::getSource (RunState& state, juce::String& message)
{
    if (config.useUrl)
        return getUrlSource (state, message);

    state.sourceFile = config.inputFile;

    if (state.sourceFile.existsAsFile())
        return true;

    message = "Input file does not exist:\n" + state.sourceFile.getFullPathName();
    return false;
}

bool PipelineRunner::findRatio (RunState& state, juce::String& message)
{
    switch (config.adjustMode)
    {
        case AdjustMode::Percentage:
            state.ratio = speedratio::fromPercent (config.percent);
            break;

        case AdjustMode::Bpm:
            if (! findTempoRatio (state, message))
                return false;
            break;

        case AdjustMode::Key:
            if (! findKeyRatio (state, message))
                return false;
            break;
    }

    state.ratio = juce::jlimit (speedratio::minimum, speedratio::maximum, state.ratio);
    return true;
}

bool PipelineRunner::findTempoRatio (RunState& state, juce::String& message)
{
    auto sourceBpm = config.fromBpm;

    if (config.autoBpm)
    {
        report (0.12, "Detecting source BPM...");

        if (! analyze (state.uv, state.scripts, state.sourceFile, true, false, sourceBpm, nullptr, message))
            return false;

        state.statusSuffix = " (detected " + juce::String (sourceBpm, 1, false) + " BPM)";
    }

    if (! (sourceBpm > 0.0) || ! (config.toBpm > 0.0))
    {
        message = "Invalid BPM values (from " + juce::String (sourceBpm) + ", to " + juce::String (config.toBpm) + ").";
        return false;
    }

    state.ratio = speedratio::fromTempos (sourceBpm, config.toBpm);
    return true;
}

bool PipelineRunner::findKeyRatio (RunState& state, juce::String& message)
{
    auto sourceKey = config.fromKey;

    if (config.autoKey)
    {
        report (0.12, "Detecting source key...");

        if (auto bpm = 0.0;
            ! analyze (state.uv, state.scripts, state.sourceFile, false, true, bpm, &sourceKey, message))
            return false;

        const auto* const name = PipelineConfig::keyNames[static_cast<size_t> (sourceKey)];
        state.statusSuffix = " (detected key: " + juce::String (name) + ")";
    }

    state.ratio = speedratio::fromKeys (sourceKey, config.toKey);
    return true;
}

bool PipelineRunner::makeOutputFolder (RunState& state, juce::String& message)
{
    state.outDir = fileInFolder (config.outputDir, state.baseName + " - Stems");

    if (state.outDir.createDirectory().wasOk())
        return true;

    message = "Could not create the output folder:\n" + state.outDir.getFullPathName();
    return false;
}

bool PipelineRunner::render (const RunState& state, int& filesWritten, juce::String& message)
{
    StemRenderer renderer (config, { .entries = state.entries,
                                     .ratio = state.ratio,
                                     .baseName = state.baseName,
                                     .statusSuffix = state.statusSuffix,
                                     .outDir = state.outDir });
    renderer.onProgress = [this] (double fraction, const juce::String& text) { report (fraction, text); };
    renderer.checksWrites = checksWrites;
    renderer.shouldCancel = [this] { return threadShouldExit(); };

    const auto success = renderer.render (message);
    filesWritten = renderer.getFilesWritten();
    return success;
}
