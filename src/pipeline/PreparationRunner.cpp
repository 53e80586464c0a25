#include "pipeline/PreparationRunner.h"

#include "pipeline/PythonBridge.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/WorkerProcess.h"
#include "pipeline/WorkerProgress.h"
#include "pipeline/Workers.h"

PreparationRunner::PreparationRunner() : juce::Thread ("KelvanePreparation") {}

void PreparationRunner::cancel()
{
    signalThreadShouldExit();
    child.kill();
}

void PreparationRunner::run()
{
    auto success = false;
    juce::String message = messages::endedEarly;

    // The guard reports after an exception too: without a completion the caller would wait forever.
    const juce::ScopeGuard delivery { [&] { finish (success, message); } };
    success = prepare (message);
}

void PreparationRunner::finish (bool success, const juce::String& message)
{
    juce::MessageManager::callAsync ([callback = onFinished, success, message]
                                     { juce::NullCheckedInvocation::invoke (callback, success, message); });
}

bool PreparationRunner::prepare (juce::String& message)
{
    juce::File uv, scripts;

    if (! PythonBridge::findTools (uv, scripts, message))
        return false;

    const auto result = runWorker (
        child, workers::preparationCommand (uv, scripts), [this] (const juce::String& line) { readLine (line); },
        [this] { return threadShouldExit(); });

    if (result.succeeded())
    {
        message = "Links, detection and stems are ready. From now on, only links need a network.";
        return true;
    }

    message = messages::withQuote ("The preparation failed.", otherOutput);

    if (! workerHasStarted)
        message << "\n\nuv could not start. Install Python 3.11 to 3.14, and make sure that you can write to your "
                   "home folder.";

    return false;
}

void PreparationRunner::readLine (const juce::String& line)
{
    workerHasStarted = workerHasStarted || workerprogress::readSetupLine (line);

    if (const auto percentage = workerprogress::readBarLine (line))
        fraction = *percentage / 100.0;
    else if (const auto plan = workerprogress::readPlanLine (line))
        juce::MessageManager::callAsync ([callback = onPlan, text = *plan]
                                         { juce::NullCheckedInvocation::invoke (callback, text); });
    else if (const auto status = workerprogress::readSetupLine (line))
        juce::MessageManager::callAsync ([callback = onProgress, done = fraction, text = *status]
                                         { juce::NullCheckedInvocation::invoke (callback, done, text); });
    else
        otherOutput << line << '\n';
}
