#pragma once

#include <juce_core/juce_core.h>

#include <new>

/** Refuses what the machine could never hold, before it is asked for.

    Systems that promise more memory than they have end the whole program once the promise is called
    in: a damaged file that claims to last for hours would take the window along.

    @param numFloats  samples that will be held at the same time
    @throws std::bad_alloc  if they exceed the machine's physical memory
*/
inline void requireMemoryFor (double numFloats)
{
    const auto physicalBytes = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;

    if (physicalBytes > 0.0 && numFloats * sizeof (float) > physicalBytes)
        throw std::bad_alloc();
}
