#pragma once

#include <juce_core/juce_core.h>

/** @returns the file or folder of that name in the folder, even if the name begins with a tilde, which
    juce::File::getChildFile takes for the start of an absolute path
*/
inline juce::File fileInFolder (const juce::File& folder, const juce::String& name)
{
    return folder.getChildFile ("./" + name);
}
