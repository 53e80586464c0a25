#include "ProgramBenchmark.h"
#include "StretchBenchmark.h"

#include "audio/AudioFile.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <stdexcept>

static constexpr auto onlyPrograms = "--only-programs";

/** Benchmarks the programs from a process without a song, because a child's peak memory starts from its parent's. */
static void benchmarkProgramsOn (const Song& song)
{
    const auto folder = juce::File::createTempFile ("benchmark");
    folder.createDirectory();
    const auto minute = folder.getChildFile ("minute.wav");
    juce::String error;

    if (! audiofile::writeWav (minute, song.audio, song.sampleRate, 16, error))
        throw std::runtime_error (error.toStdString());

    const auto self = juce::File::getSpecialLocation (juce::File::currentExecutableFile);
    juce::ChildProcess child;

    if (child.start (juce::StringArray { self.getFullPathName(), onlyPrograms, minute.getFullPathName() }))
        std::printf ("%s", child.readAllProcessOutput().toRawUTF8());

    folder.deleteRecursively();
}

static void benchmarkAll (const juce::File& file)
{
    const auto song = loadMinuteOf (file);
    registerStretchBenchmarks (song);
    benchmark::RunSpecifiedBenchmarks();
    benchmarkProgramsOn (song);
}

int main (int argc, char* argv[])
{
    benchmark::Initialize (&argc, argv);
    const auto here = juce::File::getCurrentWorkingDirectory();

    try
    {
        if (argc == 3 && juce::String (argv[1]) == onlyPrograms)
            benchmarkPrograms (here.getChildFile (juce::String::fromUTF8 (argv[2])));
        else if (argc <= 2)
            benchmarkAll (here.getChildFile (juce::String::fromUTF8 (argc == 2 ? argv[1] : KELVANE_DEMO_SONG)));
        else
            throw std::runtime_error ("Usage: kelvane_benchmarks [SONG] [--benchmark_filter=...]");
    }
    catch (const std::exception& e)
    {
        std::fprintf (stderr, "%s\n", e.what());
        return 1;
    }

    return 0;
}
