#pragma once

#include "pipeline/ChildSlot.h"

#include <juce_events/juce_events.h>

#include <functional>

/** The background thread that fetches everything that links, detection and stems need.

    It is safe to repeat, and to interrupt: what has been fetched is kept. Set the callbacks, then start the thread.
    A runner serves one preparation.
*/
class PreparationRunner : public juce::Thread
{
public:
    PreparationRunner();
    ~PreparationRunner() override = default;

    /** Called on the message thread with each line that says what is there and what is to be fetched. These come
        before the first onProgress.
    */
    std::function<void (juce::String)> onPlan;

    /** Called on the message thread with a fraction from 0 to 1, which begins again with each download, and a status
        text.
    */
    std::function<void (double, juce::String)> onProgress;

    /** Called on the message thread once, after all other calls, with success and the message for the user. */
    std::function<void (bool, juce::String)> onFinished;

    /** Asks the preparation to end and kills its worker. Returns at once, on any thread. */
    void cancel();

    void run() override;

private:
    bool prepare (juce::String& message);
    void finish (bool success, const juce::String& message);
    void readLine (const juce::String& line);

    double fraction = 0.0;
    bool hasBegun = false; /**< has the worker itself said anything, and not only uv? */
    juce::String words;    /**< what the worker has said beside its plan and its progress */
    ChildSlot child;
};
