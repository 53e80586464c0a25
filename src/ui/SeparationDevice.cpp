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

#elif ! JUCE_MAC

#include <algorithm>
#include <array>

namespace
{

#if JUCE_WINDOWS
constexpr std::array traces { "nvcuda.dll" };
#else
constexpr std::array traces {
    "proc/driver/nvidia/version",   // NVIDIA's kernel module
    "usr/lib/wsl/lib/libcuda.so.1", // NVIDIA's driver, as Windows lends it to its Linux subsystem
    "dev/kfd",                      // AMD's compute device
};
#endif

juce::File systemFolder()
{
#if JUCE_WINDOWS
    return juce::File::getSpecialLocation (juce::File::windowsSystemDirectory);
#else
    return juce::File ("/");
#endif
}

} // namespace

bool hasGpuDriver (const juce::File& system)
{
    return std::any_of (traces.begin(), traces.end(),
                        [&] (const char* trace) { return system.getChildFile (trace).exists(); });
}

bool separationHasFastDevice()
{
    return hasGpuDriver (systemFolder());
}

#endif
