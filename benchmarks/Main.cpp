#include "ProgramBenchmark.h"
#include "StretchBenchmark.h"

#include <benchmark/benchmark.h>

#include <cstdio>

int main (int argc, char* argv[])
{
    benchmark::Initialize (&argc, argv);

    if (argc > 2)
    {
        std::fprintf (stderr, "Usage: kelvane_benchmarks [SONG] [--benchmark_filter=...]\n");
        return 2;
    }

    try
    {
        const auto path = juce::String::fromUTF8 (argc == 2 ? argv[1] : KELVANE_DEMO_SONG);
        const auto song = loadMinuteOf (juce::File::getCurrentWorkingDirectory().getChildFile (path));

        registerStretchBenchmarks (song);
        benchmark::RunSpecifiedBenchmarks();
        benchmarkPrograms (song);
    }
    catch (const std::exception& e)
    {
        std::fprintf (stderr, "%s\n", e.what());
        return 1;
    }

    return 0;
}
