#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** Counts what a compressed file can really hold, for decoders that believe its claims. */
namespace containercheck
{

/** @returns the samples per channel of all frames of a FLAC stream, as the frames' own headers state them */
juce::int64 countFlacSamples (juce::InputStream& stream);

/** @returns the most samples per channel that the packets of an Ogg Vorbis file can fill, with as much again for
             packets that got lost; nothing if the file chains streams that differ in channels or sample rate, because
             a decoder would then read beyond its buffers
*/
std::optional<juce::int64> maxVorbisSamples (juce::InputStream& stream);

} // namespace containercheck
