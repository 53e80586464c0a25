#include "ui/KeyboardNavigation.h"

#include "ui/Theme.h"

#include <memory>

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
        // The dark line makes the bright one visible on the amber of the background.
        const auto area = juce::Rectangle (width, height).toFloat();
        g.setColour (theme::bg);
        g.drawRoundedRectangle (area.reduced (1.5f), 6.0f, 3.0f);
        g.setColour (theme::accent);
        g.drawRoundedRectangle (area.reduced (1.5f), 6.0f, 1.5f);
    }
};

/** Returns false for a text editor, which draws its own focus. */
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
    const auto isInside = root.isParentOf (focused);
    const auto isAtWindow = focused != nullptr && focused->isParentOf (&root);

    // After a dialog, JUCE focuses the window itself, where Tab has no effect, or a control that had the focus
    // earlier.
    if (isAtWindow || (isInside && ! focusWasInside))
        restoreFocus();

    focusWasInside = isInside || isAtWindow;
    updateOutline();
}

void KeyboardNavigation::restoreFocus()
{
    const auto canBeFocused = lastFocused != nullptr && lastFocused->isShowing() && lastFocused->isEnabled();
    (canBeFocused ? *lastFocused : root).grabKeyboardFocus();
}

void KeyboardNavigation::setKeyboardInUse (bool inUse)
{
    keyboardInUse = inUse;
    updateOutline();
}

void KeyboardNavigation::updateOutline()
{
    auto* const focused = juce::Component::getCurrentlyFocusedComponent();
    const auto isInside = root.isParentOf (focused);
    const auto shown = keyboardInUse && isInside && needsOutline (focused);

    if (isInside)
        lastFocused = focused;

    // JUCE creates the outline in the parent of its first owner, and leaves it there until the owner is null.
    outline.setOwner (nullptr);
    outline.setOwner (shown ? focused : nullptr);
}
