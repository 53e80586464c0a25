#include "app/MainComponent.h"

#include "pipeline/RunChecks.h"

namespace
{

/** Returns the message for the user if the files cannot be the song, and an empty string if they can. */
juce::String reasonToRefuse (const juce::StringArray& paths)
{
    if (paths.size() != 1)
        return "Only one song can be chosen at a time.\nDrop a single audio file.";

    const auto& path = paths[0];

    if (! juce::File::isAbsolutePath (path) || ! juce::File (path).exists())
        return "This is not a file on this computer:\n" + path + "\nDrop an audio file from one of its folders.";

    if (juce::File (path).isDirectory())
        return "This is a folder:\n" + path + "\nDrop a single audio file.";

    if (! InputPanel::offers (juce::File (path)))
        return "Kelvane does not open files of this type:\n" + path + "\nDrop a " + InputPanel::offeredTypes + " file.";

    return {};
}

bool isLink (const juce::String& text)
{
    return runchecks::looksLikeUrl (text) && ! text.containsAnyOf (" \t");
}

} // namespace

void MainComponent::takeDroppedFiles (const juce::StringArray& paths)
{
    // A browser can offer a link as a list of files. JUCE then decodes it, so its spaces must be encoded again.
    if (const auto link = paths[0].replace (" ", "%20"); paths.size() == 1 && isLink (link))
    {
        inputPanel.useUrl (link);
        return;
    }

    if (const auto reason = reasonToRefuse (paths); reason.isNotEmpty())
        showWarning ("Cannot use what was dropped", reason);
    else
        inputPanel.useFile (juce::File (paths[0]));
}

void MainComponent::takeDroppedText (const juce::String& text)
{
    juce::StringArray links, paths;

    // A browser may add the page's title on another line. A file manager may offer files as links.
    for (const auto& line : juce::StringArray::fromLines (text))
    {
        if (isLink (line.trim()))
            links.add (line.trim());
        else if (const juce::URL url (line.trim()); url.isLocalFile())
            paths.add (url.getLocalFile().getFullPathName());
    }

    if (! paths.isEmpty())
        takeDroppedFiles (paths);
    else if (links.size() == 1)
        inputPanel.useUrl (links[0]);
    else
        showWarning ("Cannot use what was dropped",
                     "This is not a link.\nDrop a single link that begins with http, or a file.");
}
