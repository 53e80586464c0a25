#include "render/ProgressDisplay.h"

#include <iostream>

#if JUCE_WINDOWS
#include <io.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

static bool standardOutputIsTerminal()
{
#if JUCE_WINDOWS
    return _isatty (1) != 0;
#else
    return isatty (STDOUT_FILENO) != 0;
#endif
}

static int terminalWidth()
{
    constexpr auto defaultWidth = 80;
#if JUCE_WINDOWS
    return defaultWidth;
#else
    winsize size {};
    return ioctl (STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : defaultWidth;
#endif
}

ProgressDisplay::ProgressDisplay() : isTerminal (standardOutputIsTerminal()) {}

void ProgressDisplay::show (double fraction, const juce::String& status)
{
    const auto percentage = juce::String (juce::roundToInt (fraction * 100.0)).paddedLeft (' ', 3) + "%  ";

    if (! isTerminal)
    {
        std::cout << percentage << status << std::endl;
        return;
    }

    constexpr auto barWidth = 24;
    const auto numFilled = juce::roundToInt (juce::jlimit (0.0, 1.0, fraction) * barWidth);
    const auto bar = "[" + juce::String::repeatedString ("#", numFilled)
                     + juce::String::repeatedString (".", barWidth - numFilled) + "] ";
    redraw (bar + percentage + status);
}

void ProgressDisplay::print (const juce::String& text)
{
    if (drawnWidth > 0)
        std::cout << '\n';

    drawnWidth = 0;
    std::cout << text << std::endl;
}

void ProgressDisplay::redraw (const juce::String& line)
{
    // A line that reaches the last column may wrap, and then it could not be overwritten.
    const auto visible = line.substring (0, terminalWidth() - 1);
    std::cout << '\r' << visible.paddedRight (' ', drawnWidth) << std::flush;
    drawnWidth = visible.length();
}
