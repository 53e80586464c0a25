#include "audio/SearchLoops.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>

namespace
{

struct Sse2
{
    using Floats = __m128;
    using Integers = __m128i;
    static constexpr int numLanes = 4;
    static constexpr bool scoresRoughly = true;

    static Integers broadcast (int32_t value) { return _mm_set1_epi32 (value); }
    static Integers load (const int32_t* from) { return _mm_loadu_si128 (reinterpret_cast<const Integers*> (from)); }
    static void store (int32_t* to, Integers value) { _mm_storeu_si128 (reinterpret_cast<Integers*> (to), value); }
    static Integers addProducts (Integers sum, Integers a, Integers b)
    {
        return _mm_add_epi32 (sum, _mm_madd_epi16 (a, b));
    }
    static void scoreRoughly (SearchScratch& scratch, int numTiles, int numGuidePoints)
    {
        scoreByPairs<Sse2> (scratch, numTiles, numGuidePoints);
    }

    static Floats broadcast (float value) { return _mm_set1_ps (value); }
    static Floats load (const float* from) { return _mm_loadu_ps (from); }
    static void store (float* to, Floats value) { _mm_storeu_ps (to, value); }
    static Floats addProduct (Floats sum, Floats a, Floats b) { return _mm_add_ps (sum, _mm_mul_ps (a, b)); }
};

} // namespace

stretch::SearchBackend stretch::sse2SearchBackend()
{
    return { "SSE2", findBest<Sse2> };
}

#else

stretch::SearchBackend stretch::sse2SearchBackend()
{
    return {};
}

#endif
