#include "audio/SearchLoops.h"

#if defined(__aarch64__) || defined(_M_ARM64)
#include <arm_neon.h>

namespace
{

constexpr int lanesOfShorts = 8;
constexpr int vectorsInTile = tileSize / lanesOfShorts;
static_assert (vectorsInTile * lanesOfShorts == tileSize);

/** Samples that are compared with points this far apart start one register apart, so all but one of the registers can
    be reused.
*/
constexpr int pointStride = lanesOfShorts / candidateStride;
constexpr int pointsInRow = matchPoints / pointStride;
static_assert (pointsInRow % lanesOfShorts == 0);

/** Multiplies a tile's candidates by the reference's points, from the given point on, and adds the products to sums. */
template <int point>
void addProductsFrom (int32x4_t* sums, int16x8_t reference, const int16x8_t* candidates)
{
    for (int v = 0; v < vectorsInTile; ++v)
    {
        const auto values = candidates[point + v];
        sums[2 * v] = vmlal_laneq_s16 (sums[2 * v], vget_low_s16 (values), reference, point);
        sums[2 * v + 1] = vmlal_high_laneq_s16 (sums[2 * v + 1], values, reference, point);
    }

    if constexpr (point + 1 < lanesOfShorts)
        addProductsFrom<point + 1> (sums, reference, candidates);
}

/** Computes the rough scores of one tile. The sums are exact in any order, so the points are taken in the order that
    needs the fewest loads.
*/
void scoreTileRoughly (const int16_t* reference, const int16_t* guide, int32_t* scores)
{
    int32x4_t sums[2 * vectorsInTile];

    for (auto& sum : sums)
        sum = vdupq_n_s32 (0);

    for (int row = 0; row < pointStride; ++row)
        for (int i = 0; i < pointsInRow; i += lanesOfShorts)
        {
            const int16_t* const first = guide + candidateStride * row + lanesOfShorts * i;
            int16x8_t candidates[lanesOfShorts + vectorsInTile - 1];

            for (int v = 0; v < lanesOfShorts + vectorsInTile - 1; ++v)
                candidates[v] = vld1q_s16 (first + lanesOfShorts * v);

            addProductsFrom<0> (sums, vld1q_s16 (reference + pointsInRow * row + i), candidates);
        }

    for (int v = 0; v < 2 * vectorsInTile; ++v)
        vst1q_s32 (scores + 4 * v, sums[v]);
}

struct Neon
{
    using Floats = float32x4_t;
    static constexpr int numLanes = 4;
    static constexpr bool scoresRoughly = true;

    static void scoreRoughly (SearchScratch& scratch, int numTiles, int numGuidePoints)
    {
        for (int row = 0; row < pointStride; ++row)
            for (int i = 0; i < pointsInRow; ++i)
                scratch.referenceShorts[pointsInRow * row + i] =
                    static_cast<int16_t> (scratch.referenceIntegers[pointStride * i + row]);

        for (int i = 0; i < numGuidePoints; ++i)
            scratch.guideShorts[i] = static_cast<int16_t> (scratch.guideIntegers[i]);

        for (int tile = 0; tile < numTiles; ++tile)
            scoreTileRoughly (scratch.referenceShorts, scratch.guideShorts + tileSize * tile,
                              scratch.roughScores + tileSize * tile);
    }

    static Floats broadcast (float value) { return vdupq_n_f32 (value); }
    static Floats load (const float* from) { return vld1q_f32 (from); }
    static void store (float* to, Floats value) { vst1q_f32 (to, value); }
    static Floats addProduct (Floats sum, Floats a, Floats b) { return vaddq_f32 (sum, vmulq_f32 (a, b)); }
};

} // namespace

stretch::SearchBackend stretch::neonSearchBackend()
{
    return { "NEON", findBest<Neon> };
}

#else

stretch::SearchBackend stretch::neonSearchBackend()
{
    return {};
}

#endif
