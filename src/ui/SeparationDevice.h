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

#elif JUCE_MAC || JUCE_LINUX

#if JUCE_MAC
/** An Intel build may be running on either kind of machine. */
bool isAppleSilicon() noexcept;
#else
/** Whether NVIDIA's driver has left its traces below the root of a file system. The worker fetches no build of
    PyTorch for any other maker's GPU. */
bool hasNvidiaDriver (const juce::File& root);
#endif

/** Never blocks and never fails: where nothing can be told, there is only the CPU. */
bool separationHasFastDevice();

#else

/** The build of PyTorch that the worker gets here knows no GPU. */
constexpr bool separationHasFastDevice() noexcept
{
    return false;
}

#endif
