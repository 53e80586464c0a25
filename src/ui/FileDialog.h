#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Opens a file chooser and comes back at once.

    On Linux JUCE tells the desktop's dialog where to begin by moving the whole program's working folder there,
    which the workers inherit. The dialog has been started when launchAsync() returns, so the old folder is
    put back then.
*/
inline void launchFileDialog (juce::FileChooser& chooser, int flags,
                              std::function<void (const juce::FileChooser&)> onFinished)
{
    const auto workingFolder = juce::File::getCurrentWorkingDirectory();
    chooser.launchAsync (flags, std::move (onFinished));
    workingFolder.setAsCurrentWorkingDirectory();
}
