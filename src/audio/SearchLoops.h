#pragma once

#include "audio/SearchBackend.h"

#include <math.h>

// The search, compiled once for each back end, with that back end's compiler flags. Everything here is local
// to the including file and calls no inline function from elsewhere. The linker may keep any one copy of such
// a function for the whole program, even one compiled for instructions that the processor lacks.
//
// Each back end supplies a type, called Vector below, with
//     numLanes                 number of 32-bit lanes, a divisor of tileSize
//     Floats                   a register of floats, with broadcast, load, store and
//                              addProduct (sum, a, b), which rounds both the product and the sum
//     scoresRoughly            true if it multiplies 16-bit integers faster than floats
//
// If scoresRoughly is true, the type also has
//     scoreRoughly (scratch, numTiles, numGuidePoints)
//                              computes the scratch's rough scores from its integers
//
// If scoreRoughly calls scoreByPairs<Vector>, the type also has
//     Integers                 a register of 32-bit integers, with broadcast, load, store and
//                              addProducts (sum, a, b), which adds the products of both 16-bit halves

namespace
{

using namespace stretch;

/** The Euclidean norm to which points are scaled before rounding.

    By the Cauchy-Schwarz inequality, no sum of products then exceeds the square of this norm, and no value exceeds the
    norm itself. So the sums fit into 32 bits and the values into 16, with room for rounding errors.
*/
constexpr double integerNorm = 32700.0;

/** A bound on the difference between a rough score and the true one, in units of the rough score.

    Rounding moves a point by up to 0.51, and so the norm of 256 points by up to 0.51 * 16. By the Cauchy-Schwarz
    inequality, this changes the sum by at most that amount times integerNorm for each of the two factors, plus
    0.51 * 0.51 * 256 for both together. The rest is the rounding of the true score: 256 operations in single precision,
    each with an error of up to 2^-24 of integerNorm squared.
*/
constexpr double roughError = 2.0 * 0.51 * 16.0 * (integerNorm + 20.0) + 0.51 * 0.51 * 256.0
                              + 256.0 / (1 << 24) * 1.01 * integerNorm * integerNorm;

/** A candidate whose rough score is lower than the best one by more than this cannot have the best true score. */
constexpr auto roughMargin = static_cast<int64_t> (2.0 * roughError) + 1;

/** Computes every step-th sample of the mean of all channels: the sum of the channels, in order,
    times the reciprocal of their number.
*/
template <int step>
void mixDown (const SearchTask& task, int start, float* points, int numPoints)
{
    constexpr int blockSize = 32;
    const float scale = 1.0f / static_cast<float> (task.numChannels);
    int i = 0;

    // The sums of a block stay in registers across all channels.
    for (; i + blockSize <= numPoints; i += blockSize)
    {
        float sums[blockSize] = {};

        for (int channel = 0; channel < task.numChannels; ++channel)
        {
            const float* const samples = task.channels[channel] + start + step * i;

            for (int lane = 0; lane < blockSize; ++lane)
                sums[lane] += samples[step * lane];
        }

        for (int lane = 0; lane < blockSize; ++lane)
            points[i + lane] = sums[lane] * scale;
    }

    for (; i < numPoints; ++i)
    {
        float sum = 0.0f;

        for (int channel = 0; channel < task.numChannels; ++channel)
            sum += task.channels[channel][start + step * i];

        points[i] = sum * scale;
    }
}

/** The Euclidean norm, computed in several parallel sums so that it can be vectorised. */
inline float norm (const float* points, int numPoints)
{
    constexpr int numSums = 16;
    float sums[numSums] = {};
    int i = 0;

    for (; i + numSums <= numPoints; i += numSums)
        for (int lane = 0; lane < numSums; ++lane)
            sums[lane] += points[i + lane] * points[i + lane];

    float energy = 0.0f;

    for (; i < numPoints; ++i)
        energy += points[i] * points[i];

    for (int lane = 0; lane < numSums; ++lane)
        energy += sums[lane];

    return sqrtf (energy);
}

/** @returns false if points of this norm are too loud or too quiet for integers, or not finite */
inline bool canBeScaled (float pointsNorm)
{
    return pointsNorm > 1.0e-12f && pointsNorm < 1.0e12f;
}

/** Scales points so that their norm is integerNorm, and rounds them to the nearest integers. The offset makes every
    value positive, so that truncation rounds down and the loop can be vectorised.
*/
inline void scaleAndRound (const float* points, float pointsNorm, int32_t* integers, int numPoints)
{
    constexpr int offset = 32768;
    const float scale = static_cast<float> (integerNorm) / pointsNorm;

    for (int i = 0; i < numPoints; ++i)
        integers[i] = static_cast<int32_t> (points[i] * scale + (offset + 0.5f)) - offset;
}

inline int32_t makePair (int32_t lower, int32_t upper)
{
    return static_cast<int32_t> ((static_cast<uint32_t> (lower) & 0xffffu) | (static_cast<uint32_t> (upper) << 16));
}

inline int32_t maximum (const int32_t* values, int numValues)
{
    int32_t result = values[0];

    for (int i = 1; i < numValues; ++i)
        result = values[i] > result ? values[i] : result;

    return result;
}

/** Computes true scores: for each of 40 candidates m from 0, the sum of reference[j] * guide[m + 2j] over j from 0 to
    255, accumulated in single precision in that order.

    The sum of one candidate has a fixed order, so it cannot be vectorised. The candidates of a tile are independent, so
    each gets a lane, and their sums stay in registers.
*/
template <typename Vector>
void scoreTile (const float* reference, const float* guide, float* scores)
{
    constexpr int numVectors = tileSize / Vector::numLanes;
    typename Vector::Floats sums[numVectors];

    for (int v = 0; v < numVectors; ++v)
        sums[v] = Vector::broadcast (0.0f);

    for (int j = 0; j < matchPoints; ++j)
    {
        const auto point = Vector::broadcast (reference[j]);
        const float* const candidates = guide + candidateStride * j;

        for (int v = 0; v < numVectors; ++v)
            sums[v] = Vector::addProduct (sums[v], point, Vector::load (candidates + v * Vector::numLanes));
    }

    for (int v = 0; v < numVectors; ++v)
        Vector::store (scores + v * Vector::numLanes, sums[v]);
}

/** Computes rough scores: the exact sums of the rounded points' products.

    Points come in pairs, the first one in the lower 16 bits. A single instruction multiplies a pair by another pair and
    adds both products, in every 32-bit lane. Compilers do not choose it by themselves here.
*/
template <typename Vector>
void scorePairs (const int32_t* reference, const int32_t* guide, int numTiles, int32_t* scores)
{
    constexpr int numVectors = tileSize / Vector::numLanes;
    static_assert (numVectors * Vector::numLanes == tileSize);

    for (int tile = 0; tile < numTiles; ++tile)
    {
        typename Vector::Integers sums[numVectors];

        for (int v = 0; v < numVectors; ++v)
            sums[v] = Vector::broadcast (0);

        for (int pair = 0; pair < matchPoints / 2; ++pair)
        {
            const auto points = Vector::broadcast (reference[pair]);
            const int32_t* const candidates = guide + 2 * candidateStride * pair;

            for (int v = 0; v < numVectors; ++v)
                sums[v] = Vector::addProducts (sums[v], points, Vector::load (candidates + v * Vector::numLanes));
        }

        for (int v = 0; v < numVectors; ++v)
            Vector::store (scores + v * Vector::numLanes, sums[v]);

        guide += tileSize;
        scores += tileSize;
    }
}

/** Arranges the scratch's integers in pairs and computes rough scores from them. */
template <typename Vector>
void scoreByPairs (SearchScratch& scratch, int numTiles, int numGuidePoints)
{
    for (int pair = 0; pair < matchPoints / 2; ++pair)
        scratch.referencePairs[pair] =
            makePair (scratch.referenceIntegers[2 * pair], scratch.referenceIntegers[2 * pair + 1]);

    for (int i = 0; i < numGuidePoints; ++i)
        scratch.guidePairs[i] = makePair (scratch.guideIntegers[i], scratch.guideIntegers[i + candidateStride]);

    scorePairs<Vector> (scratch.referencePairs, scratch.guidePairs, numTiles, scratch.roughScores);
}

/** Computes the rough scores, if this back end has them and the points can be scaled.
    @returns the lowest rough score with which a candidate may still be the best
*/
template <typename Vector>
int64_t roughThreshold (SearchScratch& scratch, int numCandidates, int numGuidePoints)
{
    constexpr auto admitsAll = INT64_MIN;

    if constexpr (! Vector::scoresRoughly)
        return admitsAll;
    else
    {
        const float referenceNorm = norm (scratch.reference, matchPoints);
        const float guideNorm = norm (scratch.guide, numGuidePoints);

        if (! canBeScaled (referenceNorm) || ! canBeScaled (guideNorm))
            return admitsAll;

        scaleAndRound (scratch.reference, referenceNorm, scratch.referenceIntegers, matchPoints);
        scaleAndRound (scratch.guide, guideNorm, scratch.guideIntegers, numGuidePoints);

        const int numTiles = (numCandidates + tileSize - 1) / tileSize;
        Vector::scoreRoughly (scratch, numTiles, numGuidePoints);
        return maximum (scratch.roughScores, numCandidates) - roughMargin;
    }
}

/** The search: rough scores select the candidates that may be the best, and true scores decide among them. */
template <typename Vector>
int findBest (const SearchTask& task, SearchScratch& scratch)
{
    const int numCandidates = (task.high - task.low) / searchStep + 1;
    const int numGuidePoints = numCandidates + candidateStride * (matchPoints - 1);

    // Candidates are two samples apart and compared points four, so only every second sample is needed. Copying these
    // samples puts neighbouring candidates next to each other in memory.
    mixDown<matchStride> (task, task.reference, scratch.reference, matchPoints);
    mixDown<searchStep> (task, task.low, scratch.guide, numGuidePoints);

    const int64_t threshold = roughThreshold<Vector> (scratch, numCandidates, numGuidePoints);
    float bestScore = -1.0e30f;
    int best = task.fallback;

    for (int m = 0; m < numCandidates;)
    {
        if (scratch.roughScores[m] < threshold)
        {
            ++m;
            continue;
        }

        float scores[tileSize];
        scoreTile<Vector> (scratch.reference, scratch.guide + m, scores);

        for (int lane = 0; lane < tileSize && m < numCandidates; ++lane, ++m)
            if (scores[lane] > bestScore)
            {
                bestScore = scores[lane];
                best = task.low + searchStep * m;
            }
    }

    return best;
}

} // namespace
