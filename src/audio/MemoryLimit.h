#pragma once

#include <juce_core/juce_core.h>

#include <limits>
#include <new>

/** Refuses an amount of memory that the machine does not have, before it is allocated.

    Systems that overcommit memory kill the program when it uses more than there is. A damaged file that claims to last
    for hours would crash the whole program. audiofile::maxSamples limits the length of a song on any machine.

    @param numFloats  number of samples in memory at the same time
    @throws std::bad_alloc  if they exceed the machine's physical memory
*/
inline void requireMemoryFor (double numFloats)
{
    const auto physicalBytes = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;

    if (physicalBytes > 0.0 && numFloats * sizeof (float) > physicalBytes)
        throw std::bad_alloc();
}

/** Converts a length in whole samples to an int, never below 1.

    @throws std::bad_alloc  if no buffer can be that long, however much memory there is
*/
inline int toBufferLength (double numSamples)
{
    if (numSamples > static_cast<double> (std::numeric_limits<int>::max()))
        throw std::bad_alloc();

    return juce::jmax (1, static_cast<int> (numSamples));
}
