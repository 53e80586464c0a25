#pragma once

#include <array>
#include <string_view>

/** Feeds arbitrary bytes to one of the readers or parsers, and throws if it breaks a promise of its interface. */
struct FuzzTarget
{
    std::string_view name; /**< its corpus is the folder of that name in tests/fuzz/corpus */
    void (*run) (std::string_view bytes);
};

extern const std::array<FuzzTarget, 8> fuzzTargets;
