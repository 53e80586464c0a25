#pragma once

#include "ui/PrivateTimer.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** A progress bar whose timer runs only during a run.

    juce::ProgressBar checks its value 33 times a second while it is visible. Once full, it also repaints each time.
*/
class RunProgressBar : public juce::ProgressBar
{
public:
    using juce::ProgressBar::ProgressBar;

    /** Starts to follow the value. */
    void follow()
    {
        constexpr auto intervalMilliseconds = 30;

        if (auto& timer = timerOf<juce::ProgressBar> (*this); ! timer.isTimerRunning())
            timer.startTimer (intervalMilliseconds);
    }

    /** Shows the current value and stops following it. */
    void settle()
    {
        auto& timer = timerOf<juce::ProgressBar> (*this);
        timer.timerCallback();
        timer.stopTimer();
    }
};
