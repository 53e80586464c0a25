#include "audio/SimilaritySearch.h"

#include "audio/SimilaritySearchBackends.h"

#include <juce_core/juce_core.h>

namespace stretch
{

std::vector<SearchBackend> availableSearchBackends()
{
    std::vector<SearchBackend> backends{ { "baseline", scoreCandidatesBaseline } };

    if (hasAvx2Backend() && juce::SystemStats::hasAVX2())
        backends.push_back ({ "AVX2", scoreCandidatesAvx2 });

    return backends;
}

const SearchBackend& fastestSearchBackend()
{
    static const auto fastest = availableSearchBackends().back();
    return fastest;
}

int SimilaritySearch::findBest (const float* signal, int reference, int low, int high, int fallback)
{
    constexpr auto noMatchScore = -1.0e30f;

    const auto numCandidates = (high - low) / searchStep + 1;
    jassert (0 < numCandidates && numCandidates <= maxCandidates);

    for (int j = 0; j < matchPoints; ++j)
        referencePoints[static_cast<size_t> (j)] = signal[reference + matchStride * j];

    // Candidates and compared samples both lie on a grid of two samples: taking that grid out of
    // the signal makes neighbouring candidates neighbours in memory.
    const auto numGuidePoints = numCandidates + (matchPoints - 1) * matchStride / searchStep;

    for (int i = 0; i < numGuidePoints; ++i)
        guidePoints[static_cast<size_t> (i)] = signal[low + searchStep * i];

    backend.scoreCandidates (referencePoints.data(), guidePoints.data(), numCandidates, scores.data());

    auto bestScore = noMatchScore;
    auto best = fallback;

    for (int m = 0; m < numCandidates; ++m)
    {
        const auto score = scores[static_cast<size_t> (m)];

        if (score > bestScore)
        {
            bestScore = score;
            best = low + searchStep * m;
        }
    }

    return best;
}

} // namespace stretch
