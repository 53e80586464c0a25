#pragma once

#include <juce_core/juce_core.h>

/** What a file's own structure says, before a decoder that trusts it is let near. */
namespace containercheck
{

/** Whether a decoder can rely on the file's structure.

    @returns false for an Ogg file chained of streams that differ in channels or rate, and for an AIFF
             file that lacks its sound data or has it ahead of its description; true for all others
*/
bool isReliable (const juce::File& file);

/** The most samples per channel that a FLAC file of this size and block size can hold, whatever
    length it claims. No bound for other formats.
*/
juce::int64 maxFlacSamples (const juce::File& file);

} // namespace containercheck
