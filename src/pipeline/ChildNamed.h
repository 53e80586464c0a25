#pragma once

#include <juce_core/juce_core.h>

/** A folder's child, whatever its name begins with.

    juce::File::getChildFile alone takes a name that begins with a tilde for a path of its own.
*/
inline juce::File childNamed (const juce::File& folder, const juce::String& name)
{
    return folder.getChildFile ("./" + name);
}
