#pragma once

#include "pipeline/Detection.h"

#include <juce_core/juce_core.h>

#include <optional>

/** The Python workers' scripts, arguments and result lines, which docs/workers.md describes. */
namespace workers
{

/** Commands that start a worker: the executable, "run", the script's full path and the script's arguments.

    uv and scripts come from PythonBridge::findTools.
*/
juce::StringArray downloadCommand (const juce::File& uv, const juce::File& scripts, const juce::String& url,
                                   const juce::File& folder);
juce::StringArray analysisCommand (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                                   bool wantBpm, bool wantKey);
juce::StringArray separationCommand (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                                     const juce::File& folder, const juce::String& model,
                                     const juce::StringArray& stems);
juce::StringArray preparationCommand (const juce::File& uv, const juce::File& scripts);

/** @returns the file that a download has written; a default File if its output names no existing file */
juce::File findDownload (const juce::String& output);

/** @returns the result of an analysis; nothing if its output has none */
std::optional<Detection> findDetection (const juce::String& output);

} // namespace workers
