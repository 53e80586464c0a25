#pragma once

#include <juce_core/juce_core.h>

// These functions guess on which device separation will run, without loading a driver. The worker makes the choice.

#if JUCE_MAC && JUCE_ARM

constexpr bool isAppleSilicon() noexcept
{
    return true;
}

#else

/** Returns true on Apple silicon, where an Intel build for macOS may be running under Rosetta. */
bool isAppleSilicon() noexcept;

#endif

/** Returns true if NVIDIA's driver for Linux is installed. The worker has no PyTorch build for other GPUs.

    @param root   the root of the file system to look in
*/
bool hasNvidiaDriver (const juce::File& root);

/** Returns true if separation will run on something faster than the CPU, and false if that is unknown.

    Inline, so that an arm64 build for macOS decides at compile time.
*/
inline bool separationHasFastDevice()
{
#if JUCE_LINUX
    return hasNvidiaDriver (juce::File ("/"));
#else
    return isAppleSilicon();
#endif
}
