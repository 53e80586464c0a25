#pragma once

#include "JuceCompatibility.h"

#include <functional>

/** A window that accepts files and text dropped anywhere on it.

    JUCE offers a drop to the component under the mouse and then to its parents, so the window gets every drop that none
    of its controls wants. It accepts all of these, because JUCE would reject a drop without telling the user why.
*/
class DropWindow : public compat::DocumentWindow, public juce::FileDragAndDropTarget, public juce::TextDragAndDropTarget
{
public:
    using compat::DocumentWindow::DocumentWindow;

    std::function<void (const juce::StringArray&)> onFilesDropped; /**< receives the full paths */
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
