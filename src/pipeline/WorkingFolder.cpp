#include "pipeline/WorkingFolder.h"

#include "pipeline/FileInFolder.h"
#include "pipeline/PythonBridge.h"

#include <cstdlib>
#include <functional>

#if ! JUCE_WINDOWS
/** Variables that hold a single path. The file or folder need not exist yet. */
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

    return fileInFolder (juce::File::getCurrentWorkingDirectory(), path).getFullPathName();
}

/** Makes the path in an entry absolute if it exists. Any other entry, such as a URL, stays as it is. The entry of a
    package index may have the form NAME=PATH.
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

static void makePathsAbsolute()
{
    // uv takes an empty TMPDIR for the working folder and would write its lock files there.
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

void enterScriptsFolder()
{
    const auto folder = PythonBridge::scriptsDir();

    if (folder == juce::File())
        return;

#if ! JUCE_WINDOWS
    makePathsAbsolute();
#endif
    folder.setAsCurrentWorkingDirectory();
}
