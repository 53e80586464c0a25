#pragma once

#include "audio/SearchScratch.h"

#include <vector>

namespace stretch
{

/** The parameters of one search; SimilaritySearch explains them and their limits. */
struct SearchTask
{
    const float* const* channels;
    int numChannels;
    int reference;
    int low;
    int high;
    int fallback;
};

/** The search's loops, compiled for one kind of processor. All back ends give bit-identical results. */
struct SearchBackend
{
    const char* name;
    int (*findBest) (const SearchTask& task, SearchScratch& scratch);
};

/** Runs on every processor. */
SearchBackend plainSearchBackend();

/** Runs on every x86-64 processor. findBest is null in builds for other processors. */
SearchBackend sse2SearchBackend();

/** Runs on processors with AVX2. findBest is null in builds without AVX2. */
SearchBackend avx2SearchBackend();

/** Runs on every arm64 processor. findBest is null in builds for other processors. */
SearchBackend neonSearchBackend();

/** The back ends that this processor can run, slowest first. */
std::vector<SearchBackend> availableSearchBackends();

/** The fastest back end that this processor can run, determined once. */
const SearchBackend& fastestSearchBackend();

} // namespace stretch
