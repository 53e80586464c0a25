// The entry of libFuzzer. KELVANE_FUZZ_TARGET names the target.

#include "fuzz/FuzzTargets.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>

static const FuzzTarget& chooseTarget()
{
    const auto* const name = std::getenv ("KELVANE_FUZZ_TARGET");
    const auto* const target = std::find_if (fuzzTargets.begin(), fuzzTargets.end(), [&] (const FuzzTarget& candidate)
                                             { return name != nullptr && candidate.name == name; });

    if (target != fuzzTargets.end())
        return *target;

    std::cerr << "Set KELVANE_FUZZ_TARGET to one of:";

    for (const auto& candidate : fuzzTargets)
        std::cerr << ' ' << candidate.name;

    std::cerr << std::endl;
    std::exit (2);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t* bytes, size_t size)
{
    static const auto& target = chooseTarget();
    target.run ({ reinterpret_cast<const char*> (bytes), size });
    return 0;
}
