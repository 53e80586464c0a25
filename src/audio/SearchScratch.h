#pragma once

#include <stdint.h>

namespace stretch
{

constexpr int matchPoints = 256; /**< points compared per candidate */
constexpr int matchStride = 4;   /**< samples between the points that are compared */
constexpr int searchStep = 2;    /**< samples between candidates */
constexpr int searchRadius = 512;
constexpr int maxCandidates = 2 * searchRadius / searchStep + 1;

/** The distance between neighbouring compared points, in steps from one candidate to the next. */
constexpr int candidateStride = matchStride / searchStep;

/** Number of neighbouring candidates that are scored together. A tile is always scored as a whole. */
constexpr int tileSize = 40;
constexpr int maxTiles = (maxCandidates + tileSize - 1) / tileSize;
constexpr int paddedCandidates = maxTiles * tileSize + tileSize;
constexpr int paddedGuidePoints = paddedCandidates + candidateStride * matchPoints;

/** The search's working memory. Zeroed only once, because values left over from one search do not affect the next. */
struct SearchScratch
{
    float reference[matchPoints] = {};
    float guide[paddedGuidePoints] = {};
    int32_t referenceIntegers[matchPoints] = {};
    int32_t guideIntegers[paddedGuidePoints + candidateStride] = {};
    int32_t referencePairs[matchPoints / 2] = {};
    int32_t guidePairs[paddedGuidePoints] = {};
    int16_t referenceShorts[matchPoints] = {};
    int16_t guideShorts[paddedGuidePoints] = {};
    int32_t roughScores[paddedCandidates] = {};
};

} // namespace stretch
