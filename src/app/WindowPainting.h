#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

// These functions paint the window's background. All coordinates are the window's.

/** Stretches a picture over an area, or fills the area with a gradient if the picture is null. */
void paintBackground (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area);

/** Draws the rule below the header, centred on y. */
void paintHeaderRule (juce::Graphics& g, int left, int right, int y);

/** Draws a pixelated arrow from the top of one panel to a button at the top of another.

    @param targetX   the x coordinate of the arrow's tip
*/
void paintConnector (juce::Graphics& g, juce::Rectangle<int> fromPanel, juce::Rectangle<int> toPanel, int targetX);

/** Draws a picture, or a badge with the program's initial if the picture is null. */
void paintLogo (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area);
