#pragma once

#include "ui/PrivateTimer.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** A progress bar that is still while nothing runs.

    JUCE's own looks at its value 33 times a second for as long as it is visible, and once it is full repaints itself
    each time.
*/
class RunProgressBar : public juce::ProgressBar
{
public:
    using juce::ProgressBar::ProgressBar;

    /** Moves with the value from now on. */
    void follow()
    {
        constexpr auto intervalMilliseconds = 30;

        if (auto& timer = timerOf<juce::ProgressBar> (*this); ! timer.isTimerRunning())
            timer.startTimer (intervalMilliseconds);
    }

    /** Shows the value as it is, and stays there. */
    void settle()
    {
        auto& timer = timerOf<juce::ProgressBar> (*this);
        timer.timerCallback();
        timer.stopTimer();
    }
};
