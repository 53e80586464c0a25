#include "pipeline/PythonBridge.h"

#include "pipeline/ChildSlot.h"
#include "pipeline/WorkerOutput.h"

#include <vector>

namespace PythonBridge
{

static constexpr auto uvNotFound = "Could not find 'uv', which is needed to run the Python workers.\n"
                                   "Install it (https://docs.astral.sh/uv/getting-started/installation/) or point the "
                                   "KELVANE_UV environment variable at the executable.";

static constexpr auto scriptsNotFound = "Could not locate the bundled Python scripts (Resources/python).";

#if JUCE_LINUX
// This location comes from the system. JUCE finds the other locations by resolving the name that the program was
// started with against the working folder, which may have changed since.
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

static juce::File findOnSearchPath()
{
    ChildSlot slot;
    auto* const which = slot.start ({ "/usr/bin/which", "uv" });

    if (which == nullptr)
        return {};

    const auto answer = readAllOutput (*which);
    slot.empty();
    return existingFile (answer.trim());
}

/** @returns the paths at which uv's installers and package managers put it */
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

    const auto found = findOnSearchPath();

    if (found != juce::File())
        return found;

    // scripts/bootstrap installs it here.
    const auto installed = home.getChildFile (".local/share/kelvane/uv/bin/uv");

    if (installed.existsAsFile())
        return installed;

    // Our packages include uv, for users who have not installed it.
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

bool findTools (juce::File& uv, juce::File& scripts, juce::String& error)
{
    uv = findUv();
    scripts = scriptsDir();

    if (uv != juce::File() && scripts != juce::File())
        return true;

    error = uv == juce::File() ? uvNotFound : scriptsNotFound;
    return false;
}

} // namespace PythonBridge
