#pragma once

#include <juce_core/juce_core.h>

/** @returns where a job can make a folder of its own, under "Kelvane" in the system's temporary folder; it is not
    there yet, and no other job is given the same
*/
inline juce::File newTemporaryFolder (const juce::String& prefix = {})
{
    return juce::File::getSpecialLocation (juce::File::tempDirectory)
        .getChildFile ("Kelvane")
        .getChildFile (prefix + juce::Uuid().toString());
}
