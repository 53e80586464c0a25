#include "pipeline/SeparationDevice.h"

#include <algorithm>
#include <array>

#if JUCE_MAC && JUCE_INTEL

#include <sys/sysctl.h>

bool isAppleSilicon() noexcept
{
    juce::int32 translated = 0;
    auto size = sizeof (translated);
    return sysctlbyname ("sysctl.proc_translated", &translated, &size, nullptr, 0) == 0 && translated == 1;
}

#elif ! JUCE_MAC

bool isAppleSilicon() noexcept
{
    return false;
}

#endif

bool hasNvidiaDriver (const juce::File& root)
{
    // The workers check the same paths in installation/environment.py.
    constexpr std::array traces {
        "proc/driver/nvidia/version",   // the kernel module
        "usr/lib/wsl/lib/libcuda.so.1", // the driver in Windows Subsystem for Linux
    };

    return std::any_of (traces.begin(), traces.end(),
                        [&] (const char* trace) { return root.getChildFile (trace).exists(); });
}
