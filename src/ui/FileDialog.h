#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#include <functional>
#include <memory>

/** Opens a dialog for one file or folder and comes back at once. The desktop's own is taken where there is one.

    On Linux JUCE tells the desktop's dialog where to begin by moving the whole program's working folder there,
    which the workers inherit. The dialog has been started when launchAsync() returns, so the old folder is
    put back then.

    @param chooser     keeps the dialog open; one that it keeps already is closed
    @param patterns    of the names that are offered, empty for all
    @param selectable  juce::FileBrowserComponent::canSelectFiles or canSelectDirectories
    @param onFinished  receives what was chosen, or a default juce::File
*/
inline void openFileDialog (std::unique_ptr<juce::FileChooser>& chooser, const juce::String& title,
                            const juce::File& start, const juce::String& patterns, int selectable,
                            std::function<void (const juce::File&)> onFinished)
{
    chooser = std::make_unique<juce::FileChooser> (title, start, patterns, true, false, nullptr);

    const auto workingFolder = juce::File::getCurrentWorkingDirectory();
    chooser->launchAsync (juce::FileBrowserComponent::openMode | selectable,
                          [onFinished = std::move (onFinished)] (const juce::FileChooser& finished)
                          { onFinished (finished.getResult()); });
    workingFolder.setAsCurrentWorkingDirectory();
}
