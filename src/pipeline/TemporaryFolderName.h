#pragma once

#include <juce_core/juce_core.h>

/** Names a folder that a job can make for itself in the system's temporary folder. No other job gets the same name.

    Its parent is "Kelvane", which is made here if it is missing, and which no other user can open. If somebody else has
    taken that name, the parent is "Kelvane-" and the user's number, or, if that is taken too, a new name each time.
*/
juce::File newTemporaryFolder (const juce::String& prefix = {});
