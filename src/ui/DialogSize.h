#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Restores the size of the dialog that has just opened if it shrinks within three seconds.

    On a busy X server a window can be painted for the first time while JUCE still has an outdated size for it. JUCE
    then makes the window that size: a file dialog becomes a single pixel, and an alert loses its button.
*/
inline void keepDialogSize()
{
    auto* const dialog = juce::ModalComponentManager::getInstance()->getModalComponent (0);

    if (dialog == nullptr)
        return;

    const auto restore =
        [safeDialog = juce::Component::SafePointer<juce::Component> (dialog), bounds = dialog->getBounds()]
    {
        auto* const opened = safeDialog.getComponent();

        if (opened != nullptr && (opened->getWidth() < bounds.getWidth() || opened->getHeight() < bounds.getHeight()))
            opened->setBounds (bounds);
    };

    for (const auto milliseconds : { 100, 300, 1000, 3000 })
        juce::Timer::callAfterDelay (milliseconds, restore);
}
