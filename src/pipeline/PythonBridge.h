#pragma once

#include <juce_core/juce_core.h>

/** Finds uv and the worker scripts. Caches nothing, so that every run looks again. */
namespace PythonBridge
{

/** Finds the executable that starts the workers: the one that the environment variable KELVANE_UV names, or else the
    first one in the usual places, on the search path and beside the program.
    @returns a default File if there is none
*/
juce::File findUv();

/** Finds the folder of the worker scripts in the application's bundle, beside the application or in the source tree.
    @returns a default File if there is none
*/
juce::File scriptsDir();

/** Finds both.
    @param error  receives the message for the user if one of them is missing
    @returns false in that case
*/
bool findTools (juce::File& uv, juce::File& scripts, juce::String& error);

} // namespace PythonBridge
