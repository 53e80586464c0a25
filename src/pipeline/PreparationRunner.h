#pragma once

#include "pipeline/ChildSlot.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread that downloads the packages and the model that links, detection and stems need.

    A preparation may be interrupted and repeated; finished downloads are kept. Set the callbacks, then start the
    thread. Each preparation needs a new runner.
*/
class PreparationRunner : public juce::Thread
{
public:
    PreparationRunner();
    ~PreparationRunner() override = default;

    /** Called on the message thread, before anything is downloaded, with each line of the plan: a part that is ready,
        or a download and its size. Not called on macOS and Windows.
    */
    std::function<void (juce::String)> onPlan;

    /** Called on the message thread with a fraction from 0 to 1, which restarts with each download, and a status text.
     */
    std::function<void (double, juce::String)> onProgress;

    /** Called once on the message thread, after all other calls, with success and the message for the user. */
    std::function<void (bool, juce::String)> onFinished;

    /** Asks the preparation to end and kills its worker. Does not wait. May be called on any thread. */
    void cancel();

    void run() override;

private:
    bool prepare (juce::String& message);
    void finish (bool success, const juce::String& message);
    void readLine (const juce::String& line);

    double fraction = 0.0;
    bool workerHasStarted = false; /**< false while all output comes from uv */
    juce::String otherOutput;      /**< lines that are neither plan nor progress */
    ChildSlot child;
};
