#pragma once

// The scoring loop, compiled once per back end with that back end's compiler flags. Everything here
// is local to the file that includes it, and no other header may come in this way: an inline
// function shared with the rest of the program would be compiled for a processor that need not be
// there, and the linker is free to keep that copy.

namespace
{

/** Scores numLanes neighbouring candidates at once.

    One candidate's sum has a fixed order and cannot be vectorised; the candidates are independent
    of each other and can. numLanes is chosen so that all running sums stay in registers.
*/
template <int numLanes>
void scoreTile (const float* reference, const float* guide, float* scores)
{
    constexpr int numPoints = 256;
    float sums[numLanes] = {};

    for (int j = 0; j < numPoints; ++j)
    {
        const float point = reference[j];
        const float* const candidates = guide + 2 * j;

        for (int lane = 0; lane < numLanes; ++lane)
            sums[lane] += point * candidates[lane];
    }

    for (int lane = 0; lane < numLanes; ++lane)
        scores[lane] = sums[lane];
}

template <int numLanes>
void scoreInTiles (const float* reference, const float* guide, int numCandidates, float* scores)
{
    for (int first = 0; first < numCandidates; first += numLanes)
        scoreTile<numLanes> (reference, guide + first, scores + first);
}

} // namespace
