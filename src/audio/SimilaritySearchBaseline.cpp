#include "audio/SimilaritySearchBackends.h"
#include "audio/SimilaritySearchKernel.h"

namespace stretch
{

void scoreCandidatesBaseline (const float* reference, const float* guide, int numCandidates, float* scores)
{
    // Ten registers of four lanes: SSE2 has sixteen.
    scoreInTiles<40> (reference, guide, numCandidates, scores);
}

} // namespace stretch
