#include "pipeline/PythonBridge.h"

#include "pipeline/ChildNamed.h"
#include "pipeline/ChildSlot.h"
#include "pipeline/WorkerOutput.h"

#include <cstdlib>
#include <vector>

namespace PythonBridge
{

const char* const uvNotFound = "Could not find 'uv', which is needed to run the Python workers.\n"
                               "Install it (https://docs.astral.sh/uv/getting-started/installation/) or point the "
                               "KELVANE_UV environment variable at the executable.";

const char* const scriptsNotFound = "Could not locate the bundled Python scripts (Resources/python).";

#if JUCE_LINUX
// JUCE finds the current application, and its executable, by the name that the program was called by, as it reads now,
// from the present working folder; the system knows better.
static constexpr auto applicationLocation = juce::File::hostApplicationPath;
static constexpr auto executableLocation = juce::File::hostApplicationPath;
#else
static constexpr auto applicationLocation = juce::File::currentApplicationFile;
static constexpr auto executableLocation = juce::File::currentExecutableFile;
#endif

#if JUCE_WINDOWS
static constexpr auto uvName = "uv.exe";
#else
static constexpr auto uvName = "uv";
#endif

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
    ChildSlot slot;
    auto* const which = slot.start ({ "/usr/bin/which", "uv" });

    if (which == nullptr)
        return {};

    const auto answer = readAllOutput (*which);
    slot.empty();
    return existingFile (answer.trim());
}

/** Where uv's installers and the system's packages put it. */
static std::vector<juce::File> usualPlaces (const juce::File& home)
{
    std::vector<juce::File> places;

#if ! JUCE_WINDOWS
    for (const auto* folder : { "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin" })
        places.push_back (juce::File (folder).getChildFile (uvName));
#endif

    for (const auto* folder : { ".local/bin", ".cargo/bin" })
        places.push_back (home.getChildFile (folder).getChildFile (uvName));

    return places;
}

juce::File findUv()
{
    const auto named = existingFile (juce::SystemStats::getEnvironmentVariable ("KELVANE_UV", {}));

    if (named != juce::File())
        return named;

    const auto home = juce::File::getSpecialLocation (juce::File::userHomeDirectory);

    for (const auto& candidate : usualPlaces (home))
        if (candidate.existsAsFile())
            return candidate;

    const auto onPath = askSystem();

    if (onPath != juce::File())
        return onPath;

    // Where scripts/bootstrap installs it.
    const auto installed = home.getChildFile (".local/share/kelvane/uv/bin/uv");

    if (installed.existsAsFile())
        return installed;

    // What a package brings along, for who has no uv.
    const auto shipped = juce::File::getSpecialLocation (executableLocation).getSiblingFile (uvName);
    return shipped.existsAsFile() ? shipped : juce::File();
}

juce::File scriptsDir()
{
    const auto application = juce::File::getSpecialLocation (applicationLocation);

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
