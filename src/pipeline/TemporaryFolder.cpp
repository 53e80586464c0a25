#include "pipeline/TemporaryFolder.h"

#if ! JUCE_WINDOWS
#include <sys/stat.h>
#include <unistd.h>
#endif

#if JUCE_WINDOWS
static juce::File parentFolder()
{
    return juce::File::getSpecialLocation (juce::File::tempDirectory).getChildFile ("Kelvane");
}
#else
/** Creates a folder that only this user can open, or closes the user's existing folder to all others.
    @returns false if the name belongs to something else, such as another user's folder or a link
*/
static bool makePrivate (const juce::File& folder)
{
    const auto path = folder.getFullPathName();

    if (mkdir (path.toRawUTF8(), S_IRWXU) == 0)
        return true;

    struct stat status = {};

    if (lstat (path.toRawUTF8(), &status) != 0 || ! S_ISDIR (status.st_mode) || status.st_uid != geteuid())
        return false;

    return (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 || chmod (path.toRawUTF8(), S_IRWXU) == 0;
}

static juce::File parentFolder()
{
    const auto folder = juce::File::getSpecialLocation (juce::File::tempDirectory);
    const auto usual = folder.getChildFile ("Kelvane");
    folder.createDirectory();

    for (const auto& candidate : { usual, folder.getChildFile ("Kelvane-" + juce::String (geteuid())),
                                   folder.getChildFile ("Kelvane-" + juce::Uuid().toString()) })
        if (makePrivate (candidate))
            return candidate;

    return usual;
}
#endif

juce::File newTemporaryFolder (const juce::String& prefix)
{
    return parentFolder().getChildFile (prefix + juce::Uuid().toString());
}
