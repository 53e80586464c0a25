#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** What JUCE's controls lack for work without a mouse: an outline around the one that has the focus,
    and Space, which acts on it as Return does.

    The outline comes with a key that the control has no use for itself, as Tab, and goes with the next click of
    the mouse.
*/
class KeyboardNavigation : private juce::KeyListener, private juce::FocusChangeListener, private juce::MouseListener
{
public:
    /** @param root   the component in which the controls are, at any depth; has to outlive this */
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
