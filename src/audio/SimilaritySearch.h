#pragma once

#include "audio/SearchBackend.h"

#include <juce_audio_basics/juce_audio_basics.h>

namespace stretch
{

/** Finds where in a signal a waveform comes again.

    The signal is the mean of all channels, in single precision: the channels added up in their order,
    times one over their number. A candidate's score is its dot product with the reference over 1024
    samples, of which every fourth counts, added up in single precision from the first to the last.

    The best is found in two passes. A rough one scores all candidates in 16-bit integers, whose error
    has a bound. Only where the rough score comes that close to the best one is the true score worked
    out, so the answer is that of the true scores alone, to the bit.
*/
class SimilaritySearch
{
public:
    /** @param inputToSearch  must outlive the search */
    SimilaritySearch (const juce::AudioBuffer<float>& inputToSearch, const SearchBackend& backendToUse)
        : input (inputToSearch), backend (backendToUse)
    {
    }

    /** The best of the candidates low, low + 2, low + 4 … not above high.

        Of equal scores the lowest candidate wins; a score of NaN never does.

        @param reference  start of the waveform that is looked for, which the input holds in full
        @param low        the first candidate
        @param high       at least low, at most low + 1024, and at least 1024 before the input's end
        @param fallback   the answer if no candidate has a score above -1e30
    */
    int findBest (int reference, int low, int high, int fallback)
    {
        return backend.findBest (
            { input.getArrayOfReadPointers(), input.getNumChannels(), reference, low, high, fallback }, scratch);
    }

private:
    const juce::AudioBuffer<float>& input;
    const SearchBackend& backend;
    SearchScratch scratch;
};

} // namespace stretch
