#include "ui/KeyboardNavigation.h"

#include "ui/Theme.h"

namespace
{

struct Outline : public juce::FocusOutline::OutlineWindowProperties
{
    juce::Rectangle<int> getOutlineBounds (juce::Component& focused) override
    {
        return focused.getScreenBounds().expanded (3);
    }

    void drawOutline (juce::Graphics& g, int width, int height) override
    {
        // The dark line sets the bright one off from the background's amber.
        const auto area = juce::Rectangle (width, height).toFloat();
        g.setColour (theme::bg);
        g.drawRoundedRectangle (area.reduced (1.5f), 6.0f, 3.0f);
        g.setColour (theme::accent);
        g.drawRoundedRectangle (area.reduced (1.5f), 6.0f, 1.5f);
    }
};

/** A text editor shows its focus itself. */
bool needsOutline (const juce::Component* focused)
{
    return focused != nullptr && dynamic_cast<const juce::TextEditor*> (focused) == nullptr;
}

} // namespace

KeyboardNavigation::KeyboardNavigation (juce::Component& rootToUse)
    : root (rootToUse), outline (std::make_unique<Outline>())
{
    root.addKeyListener (this);
    root.addMouseListener (this, true);
    juce::Desktop::getInstance().addFocusChangeListener (this);
}

KeyboardNavigation::~KeyboardNavigation()
{
    juce::Desktop::getInstance().removeFocusChangeListener (this);
    root.removeMouseListener (this);
    root.removeKeyListener (this);
}

bool KeyboardNavigation::keyPressed (const juce::KeyPress& key, juce::Component*)
{
    setKeyboardInUse (true);

    if (key != juce::KeyPress (juce::KeyPress::spaceKey))
        return false;

    auto* const focused = juce::Component::getCurrentlyFocusedComponent();

    if (auto* const button = dynamic_cast<juce::Button*> (focused))
    {
        button->triggerClick();
        return true;
    }

    if (auto* const box = dynamic_cast<juce::ComboBox*> (focused))
    {
        if (! box->isPopupActive())
            box->showPopup();

        return true;
    }

    return false;
}

void KeyboardNavigation::mouseDown (const juce::MouseEvent&)
{
    setKeyboardInUse (false);
}

void KeyboardNavigation::globalFocusChanged (juce::Component* focused)
{
    if (focused != nullptr && root.isParentOf (focused))
        lastFocused = focused;

    // A window takes the focus for itself, as after a dialog, and Tab leads nowhere from there.
    if (focused != nullptr && focused->isParentOf (&root))
    {
        const auto isLastThere = lastFocused != nullptr && lastFocused->isShowing() && lastFocused->isEnabled();
        (isLastThere ? *lastFocused : root).grabKeyboardFocus();
    }

    updateOutline();
}

void KeyboardNavigation::setKeyboardInUse (bool inUse)
{
    keyboardInUse = inUse;
    updateOutline();
}

void KeyboardNavigation::updateOutline()
{
    auto* const focused = juce::Component::getCurrentlyFocusedComponent();
    const auto shown = keyboardInUse && needsOutline (focused) && root.isParentOf (focused);

    // An outline stays in the parent of its first owner as long as it has any.
    outline.setOwner (nullptr);
    outline.setOwner (shown ? focused : nullptr);
}
