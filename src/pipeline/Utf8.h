#pragma once

#include <juce_core/juce_core.h>

#include <string_view>

/** Decodes bytes from outside the program. Replaces each null byte, and each byte outside a well-formed UTF-8 sequence
    (The Unicode Standard, table 3-7), with U+FFFD.

    JUCE's decoders accept sequences without their continuation bytes, and then access memory out of bounds.
*/
juce::String decodeUtf8 (std::string_view bytes);
