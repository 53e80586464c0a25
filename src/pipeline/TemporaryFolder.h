#pragma once

#include <juce_core/juce_core.h>

/** Chooses a unique name for a job's folder in the system's temporary folder. The caller creates the folder.

    Its parent, "Kelvane", is created here and closed to other users. If another user owns that name, the parent is
    "Kelvane-" and the user ID; if that is taken as well, it has a random name.
    @param prefix  begins the folder's own name
*/
juce::File newTemporaryFolder (const juce::String& prefix = {});
