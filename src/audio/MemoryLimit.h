#pragma once

#include <juce_core/juce_core.h>

#include <limits>
#include <new>

/** Throws if samples would need more memory than the machine has. Call it before allocating them.

    Systems that overcommit memory kill a program that uses more than there is. Without this check, a damaged file that
    claims to last for hours could end the program that way. audiofile::maxSamples also limits a song's length, whatever
    the machine's memory.

    @param numFloats  the number of samples in memory at the same time
    @throws std::bad_alloc  if they exceed the machine's physical memory
*/
inline void requireMemoryFor (double numFloats)
{
    const auto physicalBytes = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;

    if (physicalBytes > 0.0 && numFloats * sizeof (float) > physicalBytes)
        throw std::bad_alloc();
}

/** Converts a length in whole samples to a buffer's length, which is an int of at least 1.

    @throws std::bad_alloc  if the length exceeds the range of an int
*/
inline int toBufferLength (double numSamples)
{
    if (numSamples > static_cast<double> (std::numeric_limits<int>::max()))
        throw std::bad_alloc();

    return juce::jmax (1, static_cast<int> (numSamples));
}
