#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

// What the window paints beneath its controls. Coordinates are the window's.

/** Stretches a picture over an area, or fills it with a gradient where there is none. */
void paintBackground (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area);

/** Draws the rule beneath the header.

    @param y   where the line's middle is
*/
void paintHeaderRule (juce::Graphics& g, int windowWidth, int y);

/** Draws a line of square pixels from the top of one panel to the top of another, where it ends in an
    arrow's head: what the other panel's button works on is what the first one holds.

    @param targetX   where the arrow points, from the window's left edge
*/
void paintConnector (juce::Graphics& g, juce::Rectangle<int> fromPanel, juce::Rectangle<int> toPanel, int targetX);

/** Draws a picture, or a badge with the program's initial where there is none. */
void paintLogo (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area);
