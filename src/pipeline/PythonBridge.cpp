#include "pipeline/PythonBridge.h"

#include "pipeline/ChildNamed.h"
#include "pipeline/ChildSlot.h"
#include "pipeline/WorkerOutput.h"

#include <cstdlib>
#include <functional>
#include <vector>

namespace PythonBridge
{

static constexpr auto uvNotFound = "Could not find 'uv', which is needed to run the Python workers.\n"
                                   "Install it (https://docs.astral.sh/uv/getting-started/installation/) or point the "
                                   "KELVANE_UV environment variable at the executable.";

static constexpr auto scriptsNotFound = "Could not locate the bundled Python scripts (Resources/python).";

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

bool findTools (juce::File& uv, juce::File& scripts, juce::String& error)
{
    uv = findUv();
    scripts = scriptsDir();

    if (uv != juce::File() && scripts != juce::File())
        return true;

    error = uv == juce::File() ? uvNotFound : scriptsNotFound;
    return false;
}

juce::StringArray makeCommand (const juce::File& uv, const juce::File& scripts, const juce::String& script,
                               const juce::StringArray& arguments)
{
    juce::StringArray command { uv.getFullPathName(), "run", scripts.getChildFile (script).getFullPathName() };
    command.addArray (arguments);
    return command;
}

#if ! JUCE_WINDOWS
/** Variables that hold one path, of something that need not exist yet. */
static constexpr const char* pathVariables[] {
    "DENO_DIR",
    "HF_HOME",
    "HF_HUB_CACHE",
    "HUGGINGFACE_HUB_CACHE",
    "KELVANE_UV",
    "NETRC",
    "SSLKEYLOGFILE",
    "SSL_CERT_FILE",
    "SSL_CLIENT_CERT",
    "TEMP",
    "TMP",
    "TMPDIR",
    "UV_CACHE_DIR",
    "UV_CONFIG_FILE",
    "UV_CREDENTIALS_DIR",
    "UV_PROJECT",
    "UV_PYTHON_BIN_DIR",
    "UV_PYTHON_CACHE_DIR",
    "UV_PYTHON_INSTALL_DIR",
    "UV_WORKING_DIR",
    "XDG_BIN_HOME",
    "XDG_CACHE_HOME",
    "XDG_CONFIG_HOME",
    "XDG_DATA_HOME",
};

/** A variable whose entries may be paths, but also URLs, names or versions. */
struct ListVariable
{
    const char* name;
    const char* separator;
};

static constexpr auto noSeparator = "";

static constexpr ListVariable listVariables[] {
    { "PATH", ":" },
    { "SSL_CERT_DIR", ":" },
    { "UV_BUILD_CONSTRAINT", " " },
    { "UV_CONSTRAINT", " " },
    { "UV_DEFAULT_INDEX", noSeparator },
    { "UV_ENV_FILE", " " },
    { "UV_EXCLUDE", " " },
    { "UV_EXTRA_INDEX_URL", " " },
    { "UV_FIND_LINKS", "," },
    { "UV_INDEX", " " },
    { "UV_INDEX_URL", noSeparator },
    { "UV_OVERRIDE", " " },
    { "UV_PYTHON", noSeparator },
    { "UV_PYTHON_DOWNLOADS_JSON_URL", noSeparator },
    { "UV_PYTHON_SEARCH_PATH", ":" },
};

static juce::String makeAbsolute (const juce::String& path)
{
    if (path.isEmpty() || juce::File::isAbsolutePath (path))
        return path;

    return childNamed (juce::File::getCurrentWorkingDirectory(), path).getFullPathName();
}

/** Leaves alone what names no existing file, as a URL does. An index may have its own name and "=" ahead of its path.
 */
static juce::String makeEntryAbsolute (const juce::String& entry)
{
    for (const auto& path : { entry, entry.fromFirstOccurrenceOf ("=", false, false) })
        if (path.isNotEmpty() && juce::File (makeAbsolute (path)).exists())
            return entry.dropLastCharacters (path.length()) + makeAbsolute (path);

    return entry;
}

static void changeVariable (const char* name, const std::function<juce::String (const juce::String&)>& change)
{
    const auto value = juce::SystemStats::getEnvironmentVariable (name, {});

    if (const auto changed = change (value); changed != value)
        setenv (name, changed.toRawUTF8(), 1);
}

/** Keeps the meaning of relative paths in the environment when the working folder changes. */
static void makePathsAbsolute()
{
    // An empty one means none, but uv would write its lock files into the working folder.
    if (juce::SystemStats::getEnvironmentVariable ("TMPDIR", {}).isEmpty())
        unsetenv ("TMPDIR");

    for (const auto* name : pathVariables)
        changeVariable (name, makeAbsolute);

    for (const auto& variable : listVariables)
        changeVariable (variable.name,
                        [&variable] (const juce::String& value)
                        {
                            auto entries = juce::StringArray::fromTokens (value, variable.separator, {});

                            for (auto& entry : entries)
                                entry = makeEntryAbsolute (entry);

                            return entries.joinIntoString (variable.separator);
                        });
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
