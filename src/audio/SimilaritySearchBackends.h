#pragma once

namespace stretch
{

/** For whatever every processor of the target architecture can do: SSE2 on x86-64, NEON on arm64. */
void scoreCandidatesBaseline (const float* reference, const float* guide, int numCandidates, float* scores);

/** To be called only where the processor has AVX2 and hasAvx2Backend() says yes. */
void scoreCandidatesAvx2 (const float* reference, const float* guide, int numCandidates, float* scores);

/** Whether the AVX2 back end was compiled for AVX2 at all. */
bool hasAvx2Backend();

} // namespace stretch
