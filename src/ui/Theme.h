#pragma once

#include <juce_graphics/juce_graphics.h>

/** The palette. The colours of the background's stripes are in Resources/Background.svg. */
namespace theme
{

const juce::Colour bg { 0xff1c0f0a };           /**< window background */
const juce::Colour panel { 0xff3a2117 };        /**< panel face, pop-up menus, alert boxes, tooltips */
const juce::Colour panelLine { 0xff8a4a2f };    /**< frames, outlines, rules */
const juce::Colour field { 0xff4a2a1c };        /**< face of editors, combo boxes, buttons and tracks */
const juce::Colour accent { 0xfff2a838 };       /**< titles, arrows, ticks, carets, focus, progress, results */
const juce::Colour accentDim { 0xffb8792f };    /**< default fill, highlighted row, the main button */
const juce::Colour text { 0xfff5e6d3 };         /**< normal text */
const juce::Colour textDim { 0xffc2a488 };      /**< captions, placeholders, notices */
const juce::Colour textOnAccent { 0xffffffff }; /**< on highlighted rows and the main button */

} // namespace theme
