#include "pipeline/PythonBridge.h"

namespace PythonBridge
{

const char* const uvNotFound = "Could not find 'uv', which is needed to run the Python workers.\n"
                               "Install it (https://docs.astral.sh/uv/getting-started/installation/) or point the "
                               "KELVANE_UV environment variable at the executable.";

const char* const scriptsNotFound = "Could not locate the bundled Python scripts (Resources/python).";

/** @returns a default File if the path names no file */
static juce::File existingFile (const juce::String& path)
{
    if (path.isEmpty())
        return {};

    const auto file = juce::File::isAbsolutePath (path) ? juce::File (path)
                                                        : juce::File::getCurrentWorkingDirectory().getChildFile (path);
    return file.existsAsFile() ? file : juce::File();
}

static juce::File askSystem()
{
    juce::ChildProcess which;

    if (! which.start (juce::StringArray { "/usr/bin/which", "uv" }))
        return {};

    return existingFile (which.readAllProcessOutput().trim());
}

juce::File findUv()
{
    const auto named = existingFile (juce::SystemStats::getEnvironmentVariable ("KELVANE_UV", {}));

    if (named != juce::File())
        return named;

    const auto home = juce::File::getSpecialLocation (juce::File::userHomeDirectory);

    for (const auto& candidate :
         { juce::File ("/opt/homebrew/bin/uv"), juce::File ("/usr/local/bin/uv"), juce::File ("/usr/bin/uv"),
           home.getChildFile (".local/bin/uv"), home.getChildFile (".cargo/bin/uv") })
        if (candidate.existsAsFile())
            return candidate;

    const auto onPath = askSystem();

    if (onPath != juce::File())
        return onPath;

    // Where scripts/bootstrap installs it.
    const auto ours = home.getChildFile (".local/share/kelvane/uv/bin/uv");
    return ours.existsAsFile() ? ours : juce::File();
}

juce::File scriptsDir()
{
    const auto application = juce::File::getSpecialLocation (juce::File::currentApplicationFile);

    for (const auto& candidate :
         { application.getChildFile ("Contents/Resources/python"),
           application.getParentDirectory().getChildFile ("python"), juce::File (KELVANE_SCRIPTS_DIR) })
        if (candidate.isDirectory())
            return candidate;

    return {};
}

void enterScriptsDir()
{
    if (const auto folder = scriptsDir(); folder != juce::File())
        folder.setAsCurrentWorkingDirectory();
}

} // namespace PythonBridge
