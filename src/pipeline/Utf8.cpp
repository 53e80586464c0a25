#include "pipeline/Utf8.h"

#include <algorithm>
#include <string>

namespace
{

constexpr std::string_view replacementCharacter = "\xef\xbf\xbd";

struct Sequence
{
    size_t length;
    unsigned char lowestSecond = 0x80, highestSecond = 0xbf;
};

/** @returns the form of a sequence that begins with this byte; length 0 if there is no such sequence */
Sequence sequenceOf (unsigned char first)
{
    if (first == 0)
        return { 0 };

    if (first < 0x80)
        return { 1 };

    if (first >= 0xc2 && first < 0xe0)
        return { 2 };

    if (first >= 0xe0 && first < 0xf0)
        return { 3, static_cast<unsigned char> (first == 0xe0 ? 0xa0 : 0x80),
                 static_cast<unsigned char> (first == 0xed ? 0x9f : 0xbf) };

    if (first >= 0xf0 && first < 0xf5)
        return { 4, static_cast<unsigned char> (first == 0xf0 ? 0x90 : 0x80),
                 static_cast<unsigned char> (first == 0xf4 ? 0x8f : 0xbf) };

    return { 0 };
}

/** @returns the length in bytes of the well-formed sequence at the front; 0 if there is none */
size_t lengthOfSequence (std::string_view bytes)
{
    const auto sequence = sequenceOf (static_cast<unsigned char> (bytes.front()));

    if (sequence.length < 2)
        return sequence.length;

    if (bytes.size() < sequence.length)
        return 0;

    const auto second = static_cast<unsigned char> (bytes[1]);
    const auto isContinuation = [] (char byte) { return (static_cast<unsigned char> (byte) & 0xc0) == 0x80; };
    const auto others = bytes.substr (2, sequence.length - 2);

    return second >= sequence.lowestSecond && second <= sequence.highestSecond
                   && std::all_of (others.begin(), others.end(), isContinuation)
               ? sequence.length
               : 0;
}

} // namespace

juce::String decodeUtf8 (std::string_view bytes)
{
    std::string wellFormed;
    wellFormed.reserve (bytes.size());

    while (! bytes.empty())
    {
        const auto length = lengthOfSequence (bytes);
        wellFormed += length > 0 ? bytes.substr (0, length) : replacementCharacter;
        bytes.remove_prefix (std::max (length, size_t { 1 }));
    }

    return juce::String::fromUTF8 (wellFormed.data(), static_cast<int> (wellFormed.size()));
}
