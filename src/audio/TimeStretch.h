#pragma once

#include "audio/SearchBackend.h"

#include <juce_audio_basics/juce_audio_basics.h>

namespace stretch
{

/** Changes the duration of audio and keeps its pitch.

    Overlap-add with waveform similarity: the result has a frame of 2048 samples every 1024 samples. Each frame is read
    within 512 samples of its nominal position, where the waveform best continues the previous frame. All channels are
    read at the same positions, so they stay aligned.

    After W. Verhelst and M. Roelands, "An overlap-add technique based on waveform similarity (WSOLA)
    for high quality time-scale modification of speech", ICASSP 1993.

    The analysis hop is 1024 / ratio, rounded to whole samples without later correction. The result can therefore be
    shorter than samples * ratio, if the input ends too early, but never longer. An input of fewer than 4096 samples is
    resampled instead, so its pitch changes too.

    @param input  any number of channels and samples; read only
    @param ratio  output length divided by input length, above 0: 2.0 halves the tempo

    @returns a buffer of the input's channels and at least one sample. An empty input, or a ratio
             within 1e-9 of 1, gives a copy of the input.

    @throws std::bad_alloc  if the result cannot be held in memory beside the input. No other buffer of a song's length
                            is allocated.
*/
juce::AudioBuffer<float> timeStretch (const juce::AudioBuffer<float>& input, double ratio);

/** Does the same with the given search back end. The choice of back end does not change the result. */
juce::AudioBuffer<float> timeStretch (const juce::AudioBuffer<float>& input, double ratio,
                                      const SearchBackend& backend);

} // namespace stretch
