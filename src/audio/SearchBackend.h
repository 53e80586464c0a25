#pragma once

#include "audio/SearchScratch.h"

#include <vector>

namespace stretch
{

/** What one search is about; see SimilaritySearch for the meaning and the limits. */
struct SearchTask
{
    const float* const* channels;
    int numChannels;
    int reference;
    int low;
    int high;
    int fallback;
};

/** The search's loops, compiled for one kind of processor. All back ends agree to the bit. */
struct SearchBackend
{
    const char* name;
    int (*findBest) (const SearchTask& task, SearchScratch& scratch);
};

/** Runs everywhere. */
SearchBackend plainSearchBackend();

/** For every x86-64 processor. Its function is null on others. */
SearchBackend sse2SearchBackend();

/** For processors with AVX2. Its function is null where the compiler was not told to use that. */
SearchBackend avx2SearchBackend();

/** For every arm64 processor. Its function is null on others. */
SearchBackend neonSearchBackend();

/** Those that this processor can run, the slowest first. */
std::vector<SearchBackend> availableSearchBackends();

/** The fastest that this processor can run, found once. */
const SearchBackend& fastestSearchBackend();

} // namespace stretch
