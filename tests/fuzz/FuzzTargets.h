#pragma once

#include <array>
#include <string_view>

/** Feeds arbitrary bytes to one of the readers or parsers, and throws if it breaks a promise of its interface. */
struct FuzzTarget
{
    std::string_view name; /**< also the name of the target's corpus, a folder in tests/fuzz/corpus */
    void (*run) (std::string_view bytes);
};

extern const std::array<FuzzTarget, 8> fuzzTargets;
