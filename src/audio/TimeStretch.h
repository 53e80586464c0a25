#pragma once

#include "audio/SearchBackend.h"

#include <juce_audio_basics/juce_audio_basics.h>

namespace stretch
{

/** Changes the duration of audio and leaves its pitch alone.

    Overlap-add with waveform similarity: frames of 2048 samples are laid down every 1024 samples,
    and each is read from the place, within 512 samples of its nominal one, whose waveform best goes
    on from the frame before. All channels are read at the same places and so stay aligned.

    After W. Verhelst and M. Roelands, "An overlap-add technique based on waveform similarity (WSOLA)
    for high quality time-scale modification of speech", ICASSP 1993.

    The hop through the input is 1024 / ratio, rounded to whole samples and never corrected, so the
    result can be shorter than samples * ratio where the input runs out first; it is never longer.
    An input of fewer than 4096 samples is resampled instead, and its pitch changes with its speed.

    @param input  any number of channels and samples; read only
    @param ratio  output length divided by input length, above 0: 2.0 halves the tempo

    @returns a buffer of the input's channels and at least one sample. An empty input, or a ratio
             within 1e-9 of 1, gives a copy of the input.

    @throws std::bad_alloc  if the result cannot be held in memory beside the input. Nothing else of a
                            song's length is allocated.
*/
juce::AudioBuffer<float> timeStretch (const juce::AudioBuffer<float>& input, double ratio);

/** The same with a search back end of the caller's choice, which changes no bit of the result. */
juce::AudioBuffer<float> timeStretch (const juce::AudioBuffer<float>& input, double ratio,
                                      const SearchBackend& backend);

} // namespace stretch
