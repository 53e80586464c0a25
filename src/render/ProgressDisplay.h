#pragma once

#include <juce_core/juce_core.h>

/** Shows progress on standard output: on a terminal, as a bar that is redrawn on one line; elsewhere, as a line for
    each status.
*/
class ProgressDisplay
{
public:
    ProgressDisplay();

    /** @param fraction  from 0 to 1 */
    void show (double fraction, const juce::String& status);

    /** Prints a text below the progress, on a new line. */
    void print (const juce::String& text);

private:
    void redraw (const juce::String& line);

    const bool isTerminal;
    int drawnWidth = 0;
};
