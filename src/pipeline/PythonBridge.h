#pragma once

#include <juce_core/juce_core.h>

/** Finds what the Python workers need. Nothing is cached: every run looks again. */
namespace PythonBridge
{

/** The executable that starts the workers: what the environment variable KELVANE_UV names, or the first found in the
    usual places, by the system's own look-up and beside the program; a default File if there is none.
*/
juce::File findUv();

/** The folder of the worker scripts: in the application's bundle, beside the application, or in the source tree that
    it was built from; a default File if there is none.
*/
juce::File scriptsDir();

/** What starts a worker: the executable, "run", the script's full path, and then the script's own arguments. */
juce::StringArray makeCommand (const juce::File& uv, const juce::File& scripts, const juce::String& script,
                               const juce::StringArray& arguments);

/** Makes that folder the program's working folder, which the workers inherit: uv obeys configuration that it finds
    in its working folder or above, and a user may start the program in a project that has some. Relative paths in the
    environment become absolute beforehand, and an empty TMPDIR is removed.
*/
void enterScriptsDir();

/** Finds both.
    @param error  receives the message for the user if one of them is missing
*/
bool findTools (juce::File& uv, juce::File& scripts, juce::String& error);

} // namespace PythonBridge
