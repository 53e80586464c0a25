#include "ui/SeparationDevice.h"

#if JUCE_MAC && JUCE_INTEL

#include <sys/sysctl.h>

bool isAppleSilicon() noexcept
{
    // A process can ask whether it is being translated from Intel code, and only there it is.
    juce::int32 translated = 0;
    auto size = sizeof (translated);
    return sysctlbyname ("sysctl.proc_translated", &translated, &size, nullptr, 0) == 0 && translated == 1;
}

bool separationHasFastDevice()
{
    return isAppleSilicon();
}

#elif JUCE_LINUX

#include <algorithm>
#include <array>

namespace
{

constexpr std::array traces {
    "proc/driver/nvidia/version",   // NVIDIA's kernel module
    "usr/lib/wsl/lib/libcuda.so.1", // NVIDIA's driver, as Windows lends it to its Linux subsystem
};

} // namespace

bool hasNvidiaDriver (const juce::File& root)
{
    return std::any_of (traces.begin(), traces.end(),
                        [&] (const char* trace) { return root.getChildFile (trace).exists(); });
}

bool separationHasFastDevice()
{
    return hasNvidiaDriver (juce::File ("/"));
}

#endif
