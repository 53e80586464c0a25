#include "ProgramBenchmark.h"

#include "audio/AudioFile.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#if JUCE_WINDOWS

void benchmarkPrograms (const juce::File&)
{
    std::printf ("Whole programs are compared only on Linux and macOS.\n");
}

#else

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char** environ;

namespace
{

struct Usage
{
    double cpuSeconds = 0.0;
    double peakMegabytes = 0.0;
};

double toSeconds (const timeval& time)
{
    return static_cast<double> (time.tv_sec) + static_cast<double> (time.tv_usec) * 1e-6;
}

double toMegabytes (long maxResidentSize)
{
#if JUCE_MAC
    return static_cast<double> (maxResidentSize) / 1e6;
#else
    return static_cast<double> (maxResidentSize) * 1024.0 / 1e6;
#endif
}

/** Runs a program and discards its output. @returns std::nullopt if the program is missing or fails */
std::optional<Usage> run (const std::vector<std::string>& command)
{
    std::vector<char*> arguments;

    for (const auto& argument : command)
        arguments.push_back (const_cast<char*> (argument.c_str()));

    arguments.push_back (nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init (&actions);
    posix_spawn_file_actions_addopen (&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen (&actions, 2, "/dev/null", O_WRONLY, 0);

    pid_t process = 0;
    const auto spawned = posix_spawnp (&process, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy (&actions);

    auto status = 0;
    rusage usage {};

    if (! spawned || wait4 (process, &status, 0, &usage) < 0 || ! WIFEXITED (status) || WEXITSTATUS (status) != 0)
        return {};

    return Usage { toSeconds (usage.ru_utime) + toSeconds (usage.ru_stime), toMegabytes (usage.ru_maxrss) };
}

struct Program
{
    std::string name;
    std::vector<std::string> command;
    std::optional<Usage> best;
};

/** Runs the programs in turn, several times. Keeps each program's lowest CPU time and highest peak memory. */
void measure (std::vector<Program>& programs)
{
    constexpr auto numRounds = 9;

    for (int round = 0; round < numRounds; ++round)
        for (auto& program : programs)
        {
            const auto usage = run (program.command);

            if (round == 0)
                program.best = usage;
            else if (usage && program.best)
            {
                program.best->cpuSeconds = std::min (program.best->cpuSeconds, usage->cpuSeconds);
                program.best->peakMegabytes = std::max (program.best->peakMegabytes, usage->peakMegabytes);
            }
        }
}

/** @returns the megabytes of floats that a textbook overlap-add needs to stretch a song to four fifths of its length:
    the input, a mono guide of the same length, an accumulator, the sum of its windows, and the result
*/
double textbookMegabytes (const juce::File& minute)
{
    juce::AudioFormatManager formats;
    audiofile::registerFormats (formats);
    const auto reader = audiofile::open (formats, minute);
    const auto channels = static_cast<double> (reader->numChannels);
    const auto input = static_cast<double> (reader->lengthInSamples);
    const auto target = input * 0.8;
    return sizeof (float) * ((channels + 1) * input + (channels + 1) * (target + 4096) + channels * target) / 1e6;
}

} // namespace

void benchmarkPrograms (const juce::File& minute)
{
    const auto folder = minute.getParentDirectory();
    const auto in = minute.getFullPathName().toStdString();
    const auto out = folder.getChildFile ("out.wav").getFullPathName().toStdString();
    const auto outFolder = folder.getFullPathName().toStdString();

    std::vector<Program> programs {
        { "kelvane-render", { KELVANE_RENDER, in, "--out", outFolder, "--full-song", "--percent", "25" }, {} },
        { "soundstretch", { "soundstretch", in, out, "-tempo=25" }, {} },
        { "sox tempo", { "sox", in, out, "tempo", "1.25" }, {} },
        { "rubberband", { "rubberband", "--tempo", "1.25", in, out }, {} },
        { "idle", { KELVANE_RENDER, "--version" }, {} }
    };

    measure (programs);

    const auto own = programs.front().best;
    const auto idle = programs.back().best;
    programs.pop_back();

    if (! own || ! idle)
    {
        std::printf ("kelvane-render failed.\n");
        return;
    }

    std::printf ("\nA minute of stereo at 25 %% more tempo, WAV to WAV, CPU time of the whole program:\n");

    for (const auto& program : programs)
        if (program.best)
            std::printf ("  %-16s %7.3f s   %6.2f times kelvane-render's\n", program.name.c_str(),
                         program.best->cpuSeconds, program.best->cpuSeconds / own->cpuSeconds);
        else
            std::printf ("  %-16s not installed\n", program.name.c_str());

    const auto bound = textbookMegabytes (minute) + idle->peakMegabytes;
    std::printf (
        "Peak memory %.1f MB, %.2f of the %.1f MB that a textbook stretch's buffers and %.1f MB for the program make\n",
        own->peakMegabytes, own->peakMegabytes / bound, bound, idle->peakMegabytes);
}

#endif
