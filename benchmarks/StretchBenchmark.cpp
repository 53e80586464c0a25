#include "StretchBenchmark.h"

#include "audio/TimeStretch.h"
#include "support/ScalarTimeStretch.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <string>

template <typename Work>
static double cpuSeconds (Work&& work)
{
    const auto start = std::clock();
    benchmark::DoNotOptimize (work());
    return static_cast<double> (std::clock() - start) / CLOCKS_PER_SEC;
}

/** Runs both versions alternately, so that other load on the machine affects both equally. */
static void compareWithScalar (benchmark::State& state, const Song& song, double factor,
                               const stretch::SearchBackend& backend)
{
    auto fastest = std::numeric_limits<double>::max();
    auto fastestScalar = fastest;

    for (auto _ : state)
    {
        fastestScalar = std::min (fastestScalar, cpuSeconds ([&] { return scalarTimeStretch (song.audio, factor); }));

        const auto seconds = cpuSeconds ([&] { return stretch::timeStretch (song.audio, factor, backend); });
        fastest = std::min (fastest, seconds);
        state.SetIterationTime (seconds);
    }

    state.counters["times_as_fast_as_scalar"] = fastestScalar / fastest;
}

void registerStretchBenchmarks (const Song& song)
{
    for (const auto& backend : stretch::availableSearchBackends())
        for (const auto* const factor : { "0.5", "0.8", "1.25", "2.0" })
            benchmark::RegisterBenchmark ((std::string ("timeStretch/") + backend.name + "/" + factor).c_str(),
                                          [&song, backend, factor] (benchmark::State& state)
                                          { compareWithScalar (state, song, std::stod (factor), backend); })
                ->UseManualTime()
                ->Unit (benchmark::kMillisecond)
                ->Iterations (7);
}
