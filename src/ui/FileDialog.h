#pragma once

#include "ui/DialogSize.h"

#include <juce_gui_basics/juce_gui_basics.h>

#include <functional>
#include <memory>
#include <utility>

/** Opens a dialog for one file or folder, the desktop's own if there is one, and returns immediately.

    On Linux JUCE passes the start folder to the desktop's dialog by changing the working directory of the whole
    program, which the workers inherit. The dialog's process has started by the time launchAsync() returns, so the
    working directory is restored then.

    @param chooser     keeps the dialog open; a dialog that it already holds is closed
    @param patterns    the file names to show, such as "*.wav;*.flac"; empty for all
    @param selectable  juce::FileBrowserComponent::canSelectFiles or canSelectDirectories
    @param onFinished  receives the user's choice, or a default juce::File if there is none
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
    keepDialogSize();
}
