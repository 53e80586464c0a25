#include "pipeline/PipelineRunner.h"

#include "pipeline/ChildNamed.h"
#include "pipeline/SpeedRatio.h"

PipelineRunner::PipelineRunner (PipelineConfig configToUse) : juce::Thread ("Kelvane"), config (std::move (configToUse))
{
}

void PipelineRunner::cancel()
{
    signalThreadShouldExit();

    const juce::ScopedLock lock (childLock);

    if (child != nullptr)
        child->kill();
}

void PipelineRunner::run()
{
    juce::String message;
    auto success = false;

    try
    {
        success = runPipeline (message);
    }
    catch (const std::exception& e)
    {
        message = juce::String ("Unexpected error: ") + e.what();
        success = false;
    }

    // Last of all, so that a cancel that comes after the last file still counts.
    if (threadShouldExit())
    {
        message = "Cancelled.";
        success = false;
    }

    juce::MessageManager::callAsync (
        [callback = onFinished, success, message]
        {
            if (callback != nullptr)
                callback (success, message);
        });
}

void PipelineRunner::report (double fraction, const juce::String& text)
{
    juce::MessageManager::callAsync (
        [callback = onProgress, fraction, text]
        {
            if (callback != nullptr)
                callback (fraction, text);
        });
}

bool PipelineRunner::runPipeline (juce::String& message)
{
    RunState state;
    auto filesWritten = 0;

    if (! findTools (message))
        return false;

    state.tempDir = juce::File::getSpecialLocation (juce::File::tempDirectory)
                        .getChildFile ("Kelvane")
                        .getChildFile (juce::Uuid().toString());
    state.tempDir.createDirectory();

    if (! getSource (state, message) || ! findRatio (state, message))
        return false;

    if (config.fullSong)
        state.stemFiles.emplace_back ("full mix", state.sourceFile);

    if (! makeOutputFolder (state, message) || ! render (state, filesWritten, message))
        return false;

    state.tempDir.deleteRecursively();
    report (1.0, "Done");
    message = "Wrote " + juce::String (filesWritten) + " file(s) to:\n" + state.outDir.getFullPathName();
    return true;
}

bool PipelineRunner::findTools (juce::String& message)
{
    const auto wantsBpm = config.adjustMode == AdjustMode::Bpm && config.autoBpm;
    const auto wantsKey = config.adjustMode == AdjustMode::Key && config.autoKey;
    const auto wantsDownload = config.useUrl && ! config.cachedAudio.existsAsFile();

    if (! config.wantsStems() && ! wantsBpm && ! wantsKey && ! wantsDownload)
        return true;

    message = "Downloads, detection and stem separation are not available yet.\n"
              "Choose a local file, give its tempo or key, and render the full song alone.";
    return false;
}

bool PipelineRunner::getSource (RunState& state, juce::String& message)
{
    state.sourceFile = config.useUrl ? config.cachedAudio : config.inputFile;
    state.baseName = state.sourceFile.getFileNameWithoutExtension();

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
            state.ratio = speedratio::fromKeys (config.fromKey, config.toKey);
            break;
    }

    state.ratio = juce::jlimit (speedratio::minimum, speedratio::maximum, state.ratio);
    return true;
}

bool PipelineRunner::findTempoRatio (RunState& state, juce::String& message)
{
    const auto sourceBpm = config.fromBpm;

    if (! (sourceBpm > 0.0) || ! (config.toBpm > 0.0))
    {
        message = "Invalid BPM values (from " + juce::String (sourceBpm) + ", to " + juce::String (config.toBpm) + ").";
        return false;
    }

    state.ratio = speedratio::fromTempos (sourceBpm, config.toBpm);
    return true;
}

bool PipelineRunner::makeOutputFolder (RunState& state, juce::String& message)
{
    state.outDir = childNamed (config.outputDir, state.baseName + " - Stems");

    if (state.outDir.createDirectory().wasOk())
        return true;

    message = "Could not create the output folder:\n" + state.outDir.getFullPathName();
    return false;
}

bool PipelineRunner::render (const RunState& state, int& filesWritten, juce::String& message)
{
    StemRenderer renderer (config, { state.stemFiles, state.ratio, state.baseName, state.statusSuffix, state.outDir });
    renderer.onProgress = [this] (double fraction, const juce::String& text) { report (fraction, text); };
    renderer.shouldCancel = [this] { return threadShouldExit(); };

    const auto success = renderer.render (message);
    filesWritten = renderer.getFilesWritten();
    return success;
}
