#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** What a file's own structure says, before a decoder that trusts it is let near. */
namespace containercheck
{

/** The most samples per channel that a file can hold, whatever length it claims.

    @returns for FLAC what follows from the file's size and its largest block; for other formats no
             bound. Nothing at all if a decoder cannot rely on the file's structure: an Ogg file chained
             of streams that differ in channels or rate, an AIFF file that lacks its sound data or has
             it ahead of its description, a WAV file whose loops or cues go beyond its end, a file that
             cannot be read.
*/
std::optional<juce::int64> maxSamples (const juce::File& file);

} // namespace containercheck
