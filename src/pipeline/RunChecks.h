#pragma once

#include "pipeline/PipelineConfig.h"

/** What is judged before a run begins, the same wherever the run is asked for. */
namespace runchecks
{

/** Whether a text can be a link: it begins with "http", in capitals or not, and nothing else is looked at. */
bool looksLikeUrl (const juce::String& text);

/** Judges the tempos of a run with AdjustMode::Bpm. A tempo that is still to be detected is not judged.
    @returns the message for the user, empty if the run may begin
*/
juce::String checkTempos (const PipelineConfig& config);

/** Judges the folder for the output, and makes it if it is not there yet.
    @returns the message for the user, empty if the run may begin
*/
juce::String prepareOutputFolder (const juce::File& folder);

} // namespace runchecks
