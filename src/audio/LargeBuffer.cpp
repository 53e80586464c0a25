#include "audio/LargeBuffer.h"

#if JUCE_LINUX
#include <sys/mman.h>
#include <unistd.h>
#endif

static void askForLargePages ([[maybe_unused]] juce::AudioBuffer<float>& buffer)
{
#if JUCE_LINUX
    if (buffer.getNumChannels() == 0 || buffer.getNumSamples() == 0)
        return;

    const auto pageSize = static_cast<uintptr_t> (sysconf (_SC_PAGESIZE));
    const auto begin = reinterpret_cast<uintptr_t> (buffer.getArrayOfWritePointers()[0]);
    const auto end =
        begin
        + sizeof (float) * static_cast<size_t> (buffer.getNumChannels()) * static_cast<size_t> (buffer.getNumSamples());

    // Rounded outwards, because a page left out at the start would deny a large page to the rest. The call is
    // only advice, so it does no harm to other data on those pages.
    const auto firstPage = begin / pageSize * pageSize;
    const auto lastPage = (end + pageSize - 1) / pageSize * pageSize;
    madvise (reinterpret_cast<void*> (firstPage), lastPage - firstPage, MADV_HUGEPAGE);
#endif
}

juce::AudioBuffer<float> makeLargeBuffer (int numChannels, int numSamples)
{
    juce::AudioBuffer<float> buffer (numChannels, numSamples);
    askForLargePages (buffer);
    return buffer;
}
