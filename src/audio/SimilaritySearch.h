#pragma once

#include <array>
#include <vector>

namespace stretch
{

constexpr int matchStride = 4;   /**< only every fourth sample is compared */
constexpr int matchPoints = 256; /**< products per candidate, spread over 1024 samples */
constexpr int searchStep = 2;    /**< samples between candidates */
constexpr int searchRadius = 512;
constexpr int maxCandidates = 2 * searchRadius / searchStep + 1;

/** Candidates are scored in whole tiles of lanes; every back end's tile divides this number. */
constexpr int paddedCandidates = 520;

/** Scores candidates by their dot product with a reference.

    scores[m] = the sum, for j from 0 to 255, of reference[j] * guide[m + 2j], accumulated in single
    precision from 0 in increasing j, for m from 0 to numCandidates - 1. The order of summation is
    what makes all back ends agree to the bit. Whole tiles are computed: guide is read up to
    guide[paddedCandidates + 2 * 255 - 1], and scores is written up to scores[paddedCandidates - 1].
*/
using ScoreCandidates = void (*) (const float* reference, const float* guide, int numCandidates, float* scores);

/** One compilation of the scoring loop. */
struct SearchBackend
{
    const char* name;
    ScoreCandidates scoreCandidates;
};

/** Those that this processor can run, the slowest first. */
std::vector<SearchBackend> availableSearchBackends();

/** The fastest that this processor can run, found once. */
const SearchBackend& fastestSearchBackend();

/** Finds where in a signal a waveform comes again. Holds the scratch memory of one stretch. */
class SimilaritySearch
{
public:
    explicit SimilaritySearch (const SearchBackend& backendToUse) : backend (backendToUse) {}

    /** The best of the candidates low, low + 2, low + 4 … not above high.

        A candidate's score is its dot product with the reference, over 1024 samples of which every
        fourth counts, without normalisation. Of equal scores the lowest candidate wins; a score of
        NaN never does.

        @param signal     at least high + 1024 and reference + 1024 samples
        @param reference  start of the waveform that is looked for
        @param low        the first candidate
        @param high       at least low, at most low + 1024
        @param fallback   the answer if no candidate has a score above -1e30
    */
    int findBest (const float* signal, int reference, int low, int high, int fallback);

private:
    const SearchBackend& backend;
    std::array<float, matchPoints> referencePoints{};
    std::array<float, paddedCandidates + searchStep * matchPoints> guidePoints{};
    std::array<float, paddedCandidates> scores{};
};

} // namespace stretch
