// The entry point for libFuzzer. The environment variable KELVANE_FUZZ_TARGET names the target.

#include "fuzz/FuzzTargets.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>

static const FuzzTarget& chooseTarget()
{
    const auto* const name = std::getenv ("KELVANE_FUZZ_TARGET");

    for (const auto& target : fuzzTargets)
        if (name != nullptr && target.name == name)
            return target;

    std::cerr << "Set KELVANE_FUZZ_TARGET to the name of a folder in tests/fuzz/corpus.\n";
    std::exit (2);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t* bytes, size_t size)
{
    static const auto& target = chooseTarget();
    target.run ({ reinterpret_cast<const char*> (bytes), size });
    return 0;
}
