#pragma once

#include "JuceCompatibility.h"

#include <functional>

/** A window that passes on what another program drops anywhere on it.

    JUCE looks for a drop's target from the component under the mouse upwards, so the window is asked wherever none of
    its content wants the drop. It takes everything: a drop that JUCE turns away leaves the user without a reason.
*/
class DropWindow : public compat::DocumentWindow, public juce::FileDragAndDropTarget, public juce::TextDragAndDropTarget
{
public:
    using compat::DocumentWindow::DocumentWindow;

    std::function<void (const juce::StringArray&)> onFilesDropped; /**< with the files' paths */
    std::function<void (const juce::String&)> onTextDropped;

    bool isInterestedInFileDrag (const juce::StringArray&) override { return true; }
    bool isInterestedInTextDrag (const juce::String&) override { return true; }

    void filesDropped (const juce::StringArray& paths, int, int) override
    {
        juce::NullCheckedInvocation::invoke (onFilesDropped, paths);
    }

    void textDropped (const juce::String& text, int, int) override
    {
        juce::NullCheckedInvocation::invoke (onTextDropped, text);
    }
};
