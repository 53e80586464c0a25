#pragma once

#include <juce_core/juce_core.h>

/** Shows a run's progress on standard output.

    On a terminal that is one line, drawn again and again, with a bar; elsewhere a line a status.
*/
class ProgressDisplay
{
public:
    ProgressDisplay();

    /** @param fraction  from 0 to 1 */
    void show (double fraction, const juce::String& status);

    /** Prints a text of its own lines below what was shown. */
    void print (const juce::String& text);

private:
    void redraw (const juce::String& line);

    const bool isTerminal;
    int drawnWidth = 0;
};
