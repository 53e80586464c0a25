#pragma once

#include <juce_core/juce_core.h>

#include <string_view>

/** @returns the text in bytes that come from outside the program. U+FFFD stands for each byte that belongs to no
    well-formed UTF-8 sequence (The Unicode Standard, table 3-7), and for each null byte.

    JUCE's own decoders take sequences for valid that lack their continuation bytes, and then read and write beyond
    their memory.
*/
juce::String decodeUtf8 (std::string_view bytes);
