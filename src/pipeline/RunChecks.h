#pragma once

#include "pipeline/PipelineConfig.h"

/** Checks that the window and kelvane-render make before a run. */
namespace runchecks
{

/** @returns true if the text begins with "http", in upper or lower case */
bool looksLikeUrl (const juce::String& text);

/** Checks the tempos of a run with AdjustMode::Bpm, except one that has yet to be detected.
    @returns the message for the user; empty if the run may begin
*/
juce::String checkTempos (const PipelineConfig& config);

/** Checks the output folder, and creates it if necessary.
    @returns the message for the user; empty if the run may begin
*/
juce::String prepareOutputFolder (const juce::File& folder);

} // namespace runchecks
