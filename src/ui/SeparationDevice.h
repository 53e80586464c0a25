#pragma once

#include <juce_core/juce_core.h>

// Whether separation will run on something faster than the CPU, as far as that can be told at once and
// without loading a driver. What it does run on is decided by the worker.

#if JUCE_MAC && JUCE_ARM

constexpr bool isAppleSilicon() noexcept
{
    return true;
}

constexpr bool separationHasFastDevice() noexcept
{
    return isAppleSilicon();
}

#else

#if JUCE_MAC
/** An Intel build may be running on either kind of machine. */
bool isAppleSilicon() noexcept;
#else
/** Whether the driver of a GPU that the separation worker can use has left its traces.

    @param system   the root of the file system on Linux, the system folder on Windows
*/
bool hasGpuDriver (const juce::File& system);
#endif

/** Never blocks and never fails: where nothing can be told, there is only the CPU. */
bool separationHasFastDevice();

#endif
