#pragma once

#include <juce_core/juce_core.h>

/** Finds uv and the worker scripts. Caches nothing, so that every run looks again. */
namespace PythonBridge
{

/** Finds the executable that starts the workers: the one that the environment variable KELVANE_UV names, or else the
    first one found in the usual folders, on the search path, where scripts/bootstrap installs it, or beside the
    program.
    @returns a default File if there is none
*/
juce::File findUv();

/** Finds the folder of the worker scripts in the application's bundle, beside the application or in the source tree.
    @returns a default File if there is none
*/
juce::File scriptsDir();

/** Finds uv and the folder of the worker scripts.
    @param error  receives the message for the user if one of them is missing
    @returns false in that case
*/
bool findTools (juce::File& uv, juce::File& scripts, juce::String& error);

} // namespace PythonBridge
