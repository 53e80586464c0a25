#pragma once

#include "ui/PrivateTimer.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** A tooltip window whose timer runs only while the mouse is over a component with a tooltip.

    juce::TooltipWindow asks the display for the mouse position at least 18 times a second, wherever the mouse is.
*/
class HoverTooltipWindow : public juce::TooltipWindow
{
public:
    HoverTooltipWindow (juce::Component& parent, int delayMilliseconds)
        : juce::TooltipWindow (&parent, delayMilliseconds)
    {
        // A global listener would also be called while the mouse is outside the window.
        juce::Desktop::getInstance().removeGlobalMouseListener (this);
        parent.addMouseListener (this, true);
        sleep();
    }

    ~HoverTooltipWindow() override { getParentComponent()->removeMouseListener (this); }

    /** Called by the timer for the component under the mouse. */
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
        constexpr auto intervalMilliseconds = 123; // as in juce::TooltipWindow

        if (auto& timer = timerOf<juce::TooltipWindow> (*this); ! timer.isTimerRunning())
            timer.startTimer (intervalMilliseconds);
    }

    void sleep() { timerOf<juce::TooltipWindow> (*this).stopTimer(); }

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HoverTooltipWindow)
};
