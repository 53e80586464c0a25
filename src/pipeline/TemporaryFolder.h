#pragma once

#include <juce_core/juce_core.h>

/** Chooses a unique name for a job's folder in the system's temporary folder. The caller creates the folder.

    On Linux and macOS, creates the parent folder, "Kelvane", and closes it to other users. If another user has taken
    that name, the parent is "Kelvane-" and the user ID. If that name is taken as well, the parent has a random name.
    @param prefix  the start of the folder's own name
*/
juce::File newTemporaryFolder (const juce::String& prefix = {});
