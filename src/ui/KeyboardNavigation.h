#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Draws an outline around the focused control and makes Space act like Return. JUCE's controls do neither.

    The outline appears with a key press that the control does not handle itself, such as Tab, and disappears with the
    next mouse click. After a dialog, the focus returns to the control that had it before.
*/
class KeyboardNavigation : private juce::KeyListener, private juce::FocusChangeListener, private juce::MouseListener
{
public:
    /** @param root   contains the controls, at any depth; must outlive this object */
    explicit KeyboardNavigation (juce::Component& root);
    ~KeyboardNavigation() override;

private:
    bool keyPressed (const juce::KeyPress& key, juce::Component* originator) override;
    void mouseDown (const juce::MouseEvent& event) override;
    void globalFocusChanged (juce::Component* focused) override;
    void restoreFocus();
    void setKeyboardInUse (bool inUse);
    void updateOutline();

    juce::Component& root;
    juce::FocusOutline outline;
    juce::Component::SafePointer<juce::Component> lastFocused;
    bool focusWasInside = false;
    bool keyboardInUse = false;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (KeyboardNavigation)
};
