#include "audio/SearchBackend.h"

#include <juce_core/juce_core.h>

namespace stretch
{

std::vector<SearchBackend> availableSearchBackends()
{
    std::vector<SearchBackend> backends { plainSearchBackend() };

    if (const auto sse2 = sse2SearchBackend(); sse2.findBest != nullptr)
        backends.push_back (sse2);

    if (const auto avx2 = avx2SearchBackend(); avx2.findBest != nullptr && juce::SystemStats::hasAVX2())
        backends.push_back (avx2);

    if (const auto neon = neonSearchBackend(); neon.findBest != nullptr)
        backends.push_back (neon);

    return backends;
}

const SearchBackend& fastestSearchBackend()
{
    static const auto fastest = availableSearchBackends().back();
    return fastest;
}

} // namespace stretch
