#include "pipeline/AnalysisRunner.h"

#include "pipeline/Detection.h"
#include "pipeline/PythonBridge.h"
#include "pipeline/ThreadFailures.h"
#include "pipeline/WorkerOutput.h"

/** The end of a worker's raw output, without the blanks with which it fills the lines that are to be seen at once. */
static juce::String quoteTail (const juce::String& output)
{
    auto lines = juce::StringArray::fromLines (output);
    lines.trim();
    lines.removeEmptyStrings();
    return tailOf (lines.joinIntoString ("\n"), maxQuotedChars);
}

AnalysisRunner::AnalysisRunner (juce::File audioFileToUse)
    : juce::Thread ("KelvaneAnalysis"), audioFile (std::move (audioFileToUse))
{
}

AnalysisRunner::AnalysisRunner (juce::String urlToUse, juce::File downloadFolderToUse)
    : juce::Thread ("KelvaneAnalysis"), url (std::move (urlToUse)), downloadFolder (std::move (downloadFolderToUse))
{
}

void AnalysisRunner::cancel()
{
    signalThreadShouldExit();
    child.kill();
}

void AnalysisRunner::run()
{
    Outcome outcome;
    outcome.error = threadfailures::endedEarly;

    // By the guard even if an exception ends the thread: whoever waits for the outcome would wait forever.
    const juce::ScopeGuard delivery { [&] { deliver (outcome); } };
    outcome = findOutcome();
}

void AnalysisRunner::deliver (const Outcome& outcome)
{
    if (threadShouldExit())
        return;

    juce::MessageManager::callAsync (
        [callback = onFinished, outcome]
        {
            if (callback != nullptr)
                callback (outcome.success, outcome.bpm, outcome.key, outcome.download, outcome.error);
        });
}

AnalysisRunner::Outcome AnalysisRunner::findOutcome()
{
    juce::File uv, scripts;
    Outcome outcome;

    if (! PythonBridge::findTools (uv, scripts, outcome.error))
        return outcome;

    if (url.isEmpty())
        analyze (uv, scripts, audioFile, outcome);
    else if (download (uv, scripts, outcome))
        analyze (uv, scripts, outcome.download, outcome);

    return outcome;
}

bool AnalysisRunner::download (const juce::File& uv, const juce::File& scripts, Outcome& outcome)
{
    downloadFolder.createDirectory();

    juce::String output;
    const auto succeeded = runScriptCapture (
        PythonBridge::makeCommand (uv, scripts, "yt2wav.py", { url, downloadFolder.getFullPathName() }), output);
    const auto file = findFile (output, "WAV_PATH::");

    if (succeeded && file != juce::File())
    {
        outcome.download = file;
        return true;
    }

    outcome.error = downloadFailedText + quoteTail (output);
    return false;
}

void AnalysisRunner::analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                              Outcome& outcome)
{
    juce::String output;
    const auto succeeded = runScriptCapture (
        PythonBridge::makeCommand (uv, scripts, "analyze.py", { audio.getFullPathName(), "--bpm", "--key" }), output);
    const auto value = findMarker (output, "RESULT::");

    if (! succeeded || value.isEmpty())
    {
        outcome.error = "Analysis failed.\n\n" + quoteTail (output);
        return;
    }

    const auto detection = Detection::fromJson (value);
    outcome.bpm = detection.bpm;
    outcome.key = detection.key;
    outcome.success = true;
}

bool AnalysisRunner::runScriptCapture (const juce::StringArray& args, juce::String& output)
{
    auto* const process = child.start (args);

    if (process == nullptr)
        return false;

    output = readAllOutput (*process);

    // JUCE takes a process that has closed its output, but not ended yet, for one that has succeeded.
    process->waitForProcessToFinish (-1);
    const auto succeeded = ! threadShouldExit() && process->getExitCode() == 0;
    child.empty();
    return succeeded;
}
