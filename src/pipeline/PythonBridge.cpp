#include "pipeline/PythonBridge.h"

#include "pipeline/ChildNamed.h"

#include <cstdlib>

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

    const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (path);
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
#if JUCE_LINUX
    // JUCE finds the current application by the name that the program was called by, as it reads now, from the present
    // working folder; the system knows better.
    constexpr auto location = juce::File::hostApplicationPath;
#else
    constexpr auto location = juce::File::currentApplicationFile;
#endif
    const auto application = juce::File::getSpecialLocation (location);

    for (const auto& candidate :
         { application.getChildFile ("Contents/Resources/python"),
           application.getParentDirectory().getChildFile ("python"), juce::File (KELVANE_SCRIPTS_DIR) })
        if (candidate.isDirectory())
            return candidate;

    return {};
}

juce::StringArray makeCommand (const juce::File& uv, const juce::File& scripts, const juce::String& script,
                               const juce::StringArray& arguments)
{
    juce::StringArray command { uv.getFullPathName(), "run", scripts.getChildFile (script).getFullPathName() };
    command.addArray (arguments);
    return command;
}

#if ! JUCE_WINDOWS
/** What the user has named from the old working folder shall mean the same from the new one. */
static void makePathsAbsolute()
{
    for (const auto* name : { "KELVANE_UV", "UV_CACHE_DIR", "HF_HOME", "HF_HUB_CACHE", "XDG_CACHE_HOME", "TMPDIR" })
    {
        const auto path = juce::SystemStats::getEnvironmentVariable (name, {});

        if (path.isNotEmpty() && ! juce::File::isAbsolutePath (path))
            setenv (name, childNamed (juce::File::getCurrentWorkingDirectory(), path).getFullPathName().toRawUTF8(), 1);
    }
}
#endif

void enterScriptsDir()
{
    const auto folder = scriptsDir();

    if (folder == juce::File())
        return;

#if ! JUCE_WINDOWS
    makePathsAbsolute();
#endif
    folder.setAsCurrentWorkingDirectory();
}

} // namespace PythonBridge
