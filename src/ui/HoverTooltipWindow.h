#pragma once

#include "ui/PrivateTimer.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** Shows tooltips, and is still while there is none to come.

    JUCE's own asks the display where the mouse is 18 times a second or more, wherever that is.
*/
class HoverTooltipWindow : public juce::TooltipWindow
{
public:
    HoverTooltipWindow (juce::Component& parent, int delayMilliseconds)
        : juce::TooltipWindow (&parent, delayMilliseconds)
    {
        // A listener to the whole desktop has JUCE look for the mouse all the time.
        juce::Desktop::getInstance().removeGlobalMouseListener (this);
        parent.addMouseListener (this, true);
        sleep();
    }

    ~HoverTooltipWindow() override { getParentComponent()->removeMouseListener (this); }

    /** Is asked by the timer for what is under the mouse. */
    juce::String getTipFor (juce::Component& component) override
    {
        const auto tip = juce::TooltipWindow::getTipFor (component);

        if (tip.isEmpty() && ! isVisible())
            sleep();

        return tip;
    }

    void mouseMove (const juce::MouseEvent&) override { wake(); }
    void mouseUp (const juce::MouseEvent&) override { wake(); }

    void mouseExit (const juce::MouseEvent&) override
    {
        if (getParentComponent()->isMouseOver (true))
            return;

        hideTip();
        sleep();
    }

private:
    void wake()
    {
        constexpr auto intervalMilliseconds = 123; // JUCE's own

        if (auto& timer = timerOf<juce::TooltipWindow> (*this); ! timer.isTimerRunning())
            timer.startTimer (intervalMilliseconds);
    }

    void sleep() { timerOf<juce::TooltipWindow> (*this).stopTimer(); }

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HoverTooltipWindow)
};
