#include "audio/LargeBuffer.h"

#if JUCE_LINUX
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

/** Makes the C library return a song's memory to the system when it is freed.

    By default, glibc does so only for blocks above a threshold, which it raises to the size of the largest block freed
    so far, up to 32 MB. Later songs are then allocated from the heaps of their threads, which keep freed memory.
*/
static void returnFreedSongs()
{
#if JUCE_LINUX && defined(__GLIBC__)
    constexpr auto fixedThreshold = 1 << 20;
    [[maybe_unused]] static const auto isFixed = mallopt (M_MMAP_THRESHOLD, fixedThreshold);
#endif
}

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

    // Round outwards, because leaving out the first small page would rule out the first large one. The call is
    // only a hint, so it does no harm to other data on those pages.
    const auto firstPage = begin / pageSize * pageSize;
    const auto lastPage = (end + pageSize - 1) / pageSize * pageSize;
    madvise (reinterpret_cast<void*> (firstPage), lastPage - firstPage, MADV_HUGEPAGE);
#endif
}

juce::AudioBuffer<float> makeLargeBuffer (int numChannels, int numSamples)
{
    returnFreedSongs();
    juce::AudioBuffer<float> buffer (numChannels, numSamples);
    askForLargePages (buffer);
    return buffer;
}
