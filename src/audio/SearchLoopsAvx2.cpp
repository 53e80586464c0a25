#include "audio/SearchLoops.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace
{

struct Avx2
{
    using Floats = __m256;
    using Integers = __m256i;
    static constexpr int numLanes = 8;
    static constexpr bool scoresRoughly = true;

    static Integers broadcast (int32_t value) { return _mm256_set1_epi32 (value); }
    static Integers load (const int32_t* from) { return _mm256_loadu_si256 (reinterpret_cast<const Integers*> (from)); }
    static void store (int32_t* to, Integers value) { _mm256_storeu_si256 (reinterpret_cast<Integers*> (to), value); }
    static Integers addProducts (Integers sum, Integers a, Integers b)
    {
        return _mm256_add_epi32 (sum, _mm256_madd_epi16 (a, b));
    }
    static void scoreRoughly (SearchScratch& scratch, int numTiles, int numGuidePoints)
    {
        scoreByPairs<Avx2> (scratch, numTiles, numGuidePoints);
    }

    static Floats broadcast (float value) { return _mm256_set1_ps (value); }
    static Floats load (const float* from) { return _mm256_loadu_ps (from); }
    static void store (float* to, Floats value) { _mm256_storeu_ps (to, value); }
    static Floats addProduct (Floats sum, Floats a, Floats b) { return _mm256_add_ps (sum, _mm256_mul_ps (a, b)); }
};

} // namespace

stretch::SearchBackend stretch::avx2SearchBackend()
{
    return { "AVX2", findBest<Avx2> };
}

#else

stretch::SearchBackend stretch::avx2SearchBackend()
{
    return {};
}

#endif
