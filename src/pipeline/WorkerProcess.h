#pragma once

#include "pipeline/ChildSlot.h"
#include "pipeline/WorkerOutput.h"

#include <functional>

/** Runs one worker until it ends or is cancelled, and reads its output.

    To cancel, make shouldExit return true and then kill the process in the slot.

    @param slot        holds the process while it runs
    @param args        the executable and its arguments
    @param onLine      called with each line on the calling thread; may be empty
    @param shouldExit  returns true once the worker has been cancelled
*/
ScriptResult runWorker (ChildSlot& slot, const juce::StringArray& args, const LineCallback& onLine,
                        const std::function<bool()>& shouldExit);
