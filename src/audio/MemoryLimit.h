#pragma once

#include <juce_core/juce_core.h>

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
