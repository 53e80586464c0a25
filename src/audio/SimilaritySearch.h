#pragma once

#include "audio/SearchBackend.h"

#include <juce_audio_basics/juce_audio_basics.h>

namespace stretch
{

/** Finds the position at which a signal is most similar to a reference waveform.

    The signal is the mean of all channels in single precision: the sum of the channels, in order, times the reciprocal
    of their number. A candidate's score is its dot product with the reference over every fourth of 1024 samples, summed
    in single precision from the first to the last.

    The search takes two passes. The first scores all candidates in 16-bit integers, with a bound on their error. The
    second computes the true score only of candidates within that bound of the best one. So the result is bit-identical
    to a search by true scores alone.
*/
class SimilaritySearch
{
public:
    /** @param inputToSearch  must outlive the search */
    SimilaritySearch (const juce::AudioBuffer<float>& inputToSearch, const SearchBackend& backendToUse)
        : input (inputToSearch), backend (backendToUse)
    {
    }

    /** Finds the best of the candidates low, low + 2, low + 4 … up to high.

        If scores are equal, the lowest candidate wins. A score of NaN never wins.

        @param reference  start of the waveform to find, all of which must lie within the input
        @param low        the first candidate
        @param high       at least low, at most low + 1024, and at least 1024 before the input's end
        @param fallback   the result if no candidate has a score above -1e30
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
