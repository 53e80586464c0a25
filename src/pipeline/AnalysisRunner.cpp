#include "pipeline/AnalysisRunner.h"

#include "pipeline/PythonBridge.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/WorkerOutput.h"
#include "pipeline/Workers.h"

/** Removes blank lines, and the spaces with which a worker fills a read block so that its line appears at once. */
static juce::String withoutPadding (const juce::String& output)
{
    auto lines = juce::StringArray::fromLines (output);
    lines.trim();
    lines.removeEmptyStrings();
    return lines.joinIntoString ("\n");
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
    outcome.error = messages::endedEarly;

    // The guard delivers after an exception too: without an outcome the caller would wait forever.
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
            juce::NullCheckedInvocation::invoke (callback, outcome.success, outcome.bpm, outcome.key, outcome.download,
                                                 outcome.error);
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
    const auto succeeded = runScriptCapture (workers::downloadCommand (uv, scripts, url, downloadFolder), output);
    const auto file = workers::findDownload (output);

    if (succeeded && file != juce::File())
    {
        outcome.download = file;
        return true;
    }

    outcome.error = messages::withQuote (messages::downloadFailed, withoutPadding (output));
    return false;
}

void AnalysisRunner::analyze (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                              Outcome& outcome)
{
    juce::String output;
    const auto succeeded = runScriptCapture (workers::analysisCommand (uv, scripts, audio, true, true), output);
    const auto detection = workers::findDetection (output);

    if (! succeeded || ! detection)
    {
        outcome.error = messages::withQuote ("Analysis failed.", withoutPadding (output));
        return;
    }

    outcome.bpm = detection->bpm;
    outcome.key = detection->key;
    outcome.success = true;
}

bool AnalysisRunner::runScriptCapture (const juce::StringArray& args, juce::String& output)
{
    auto* const process = child.start (args);

    if (process == nullptr)
        return false;

    output = readAllOutput (*process);

    // Until the process has ended, JUCE gives 0 as its exit code.
    process->waitForProcessToFinish (-1);
    const auto succeeded = ! threadShouldExit() && process->getExitCode() == 0;
    child.empty();
    return succeeded;
}
