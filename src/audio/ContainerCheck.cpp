#include "audio/ContainerCheck.h"

#include <array>
#include <limits>
#include <optional>

namespace containercheck
{

namespace
{

struct VorbisFormat
{
    int numChannels = 0;
    int sampleRate = 0;

    bool operator== (const VorbisFormat&) const = default;
};

/** The format that a Vorbis stream's first packet states, if this is one: its type, "vorbis", four
    bytes of version, one of channels and four of rate.
*/
std::optional<VorbisFormat> readVorbisFormat (juce::InputStream& stream)
{
    std::array<char, 11> start {};

    if (stream.read (start.data(), static_cast<int> (start.size())) != static_cast<int> (start.size())
        || juce::String (start.data() + 1, 6) != "vorbis")
        return {};

    const auto numChannels = static_cast<juce::uint8> (stream.readByte());
    return VorbisFormat { numChannels, stream.readInt() };
}

/** Goes from page to page: 27 bytes of header, of which the last counts the segments, then a byte a
    segment for its length.
*/
bool oggLinksAgree (juce::InputStream& stream)
{
    constexpr auto beginsStream = 2;
    std::optional<VorbisFormat> first;

    for (juce::int64 page = 0; ! stream.isExhausted();)
    {
        std::array<char, 27> header {};
        stream.setPosition (page);

        if (stream.read (header.data(), 27) != 27 || juce::String (header.data(), 4) != "OggS")
            return true;

        std::array<juce::uint8, 255> segments {};
        const auto numSegments = static_cast<juce::uint8> (header[26]);
        stream.read (segments.data(), numSegments);
        const auto body = page + 27 + numSegments;

        if ((header[5] & beginsStream) != 0)
        {
            const auto format = readVorbisFormat (stream);

            if (first && format && *format != *first)
                return false;

            first = first ? first : format;
        }

        page = body;

        for (const auto length : segments)
            page += length;
    }

    return true;
}

/** Chunks are a name, a length and so many bytes, padded to an even number. */
bool aiffDescribesItsSound (juce::InputStream& stream)
{
    auto isDescribed = false;

    for (juce::int64 chunk = 12; chunk + 8 <= stream.getTotalLength();)
    {
        std::array<char, 4> name {};
        stream.setPosition (chunk);
        stream.read (name.data(), 4);
        const auto length = static_cast<juce::uint32> (stream.readIntBigEndian());

        if (juce::String (name.data(), 4) == "COMM")
            isDescribed = true;
        else if (juce::String (name.data(), 4) == "SSND")
            return isDescribed;

        chunk += 8 + static_cast<juce::int64> (length) + (length & 1);
    }

    return false;
}

juce::String readMagic (juce::InputStream& stream)
{
    std::array<char, 4> magic {};
    stream.read (magic.data(), 4);
    return { juce::CharPointer_ASCII (magic.data()), 4 };
}

} // namespace

bool isReliable (const juce::File& file)
{
    juce::FileInputStream stream (file);
    const auto magic = stream.openedOk() ? readMagic (stream) : juce::String();

    if (magic == "OggS")
        return oggLinksAgree (stream);

    return magic != "FORM" || aiffDescribesItsSound (stream);
}

juce::int64 maxFlacSamples (const juce::File& file)
{
    constexpr auto smallestFrame = 10; // bytes: header, one constant subframe a channel, checksum

    juce::FileInputStream stream (file);

    if (! stream.openedOk() || readMagic (stream) != "fLaC")
        return std::numeric_limits<juce::int64>::max();

    stream.setPosition (10);
    const auto maxBlockSize = static_cast<juce::uint16> (stream.readShortBigEndian());
    return (file.getSize() / smallestFrame + 1) * maxBlockSize;
}

} // namespace containercheck
