#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** Finds how many samples a compressed file can hold, because decoders trust the length that it claims. */
namespace containercheck
{

/** @returns the samples per channel of a FLAC stream, added up from the headers of its frames */
juce::int64 countFlacSamples (juce::InputStream& stream);

/** @returns an upper limit on the samples per channel of an Ogg Vorbis file: twice what its packets can hold, to allow
             for lost packets; nothing if the file chains streams with different channel counts or sample rates, because
             a decoder would then read beyond its buffers
*/
std::optional<juce::int64> maxVorbisSamples (juce::InputStream& stream);

} // namespace containercheck
