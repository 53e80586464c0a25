#include "audio/SimilaritySearchBackends.h"
#include "audio/SimilaritySearchKernel.h"

namespace stretch
{

bool hasAvx2Backend()
{
#ifdef __AVX2__
    return true;
#else
    return false;
#endif
}

void scoreCandidatesAvx2 (const float* reference, const float* guide, int numCandidates, float* scores)
{
    // Thirteen registers of eight lanes: AVX2 has sixteen.
    scoreInTiles<104> (reference, guide, numCandidates, scores);
}

} // namespace stretch
