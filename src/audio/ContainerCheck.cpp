#include "audio/ContainerCheck.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <string>

namespace containercheck
{

namespace
{

/** Four letters that name a file's format or a part of it. They may be any bytes. */
std::string readName (juce::InputStream& stream)
{
    std::string name (4, '\0');
    stream.read (name.data(), 4);
    return name;
}

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
    constexpr std::array name { 'v', 'o', 'r', 'b', 'i', 's' };
    std::array<char, 11> start {};

    if (stream.read (start.data(), static_cast<int> (start.size())) != static_cast<int> (start.size())
        || ! std::equal (name.begin(), name.end(), start.begin() + 1))
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
        stream.setPosition (page);

        if (readName (stream) != "OggS")
            return true;

        std::array<char, 23> header {}; // what is left of it
        std::array<juce::uint8, 255> segments {};
        stream.read (header.data(), 23);
        const auto numSegments = static_cast<juce::uint8> (header[22]);
        stream.read (segments.data(), numSegments);
        const auto body = page + 27 + numSegments;

        if ((header[1] & beginsStream) != 0)
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

/** Goes from chunk to chunk, each a name, a length and so many bytes, padded to an even number.

    @param visit  receives a chunk's name and the position behind it; returns false to go no further
*/
template <typename Visit>
void visitChunks (juce::InputStream& stream, std::endian order, Visit&& visit)
{
    for (juce::int64 chunk = 12; chunk + 8 <= stream.getTotalLength();)
    {
        stream.setPosition (chunk);
        const auto name = readName (stream);
        const auto length =
            static_cast<juce::uint32> (order == std::endian::big ? stream.readIntBigEndian() : stream.readInt());
        chunk += 8 + static_cast<juce::int64> (length) + (length & 1);

        if (! visit (name, chunk))
            return;
    }
}

bool aiffDescribesItsSound (juce::InputStream& stream)
{
    auto isDescribed = false, hasSound = false;

    visitChunks (stream, std::endian::big,
                 [&] (const std::string& name, juce::int64)
                 {
                     isDescribed = isDescribed || name == "COMM";
                     hasSound = name == "SSND";
                     return ! hasSound;
                 });

    return isDescribed && hasSound;
}

/** A table of loops or cues whose length goes beyond the file would be read on in memory, gigabytes of it. */
bool wavTablesFit (juce::InputStream& stream)
{
    const auto paddedEnd = stream.getTotalLength() + 1;
    auto fit = true;

    visitChunks (stream, std::endian::little,
                 [&] (const std::string& name, juce::int64 end)
                 {
                     fit = (name != "smpl" && name != "cue ") || end <= paddedEnd;
                     return fit;
                 });

    return fit;
}

/** A frame has a header, a constant subframe a channel at least, and a checksum. */
juce::int64 maxFlacSamples (juce::InputStream& stream)
{
    constexpr auto smallestFrame = 10;

    stream.setPosition (10);
    const auto maxBlockSize = static_cast<juce::uint16> (stream.readShortBigEndian());
    return (stream.getTotalLength() / smallestFrame + 1) * maxBlockSize;
}

} // namespace

std::optional<juce::int64> maxSamples (const juce::File& file)
{
    constexpr auto noBound = std::numeric_limits<juce::int64>::max();
    juce::FileInputStream stream (file);

    if (! stream.openedOk())
        return {};

    const auto name = readName (stream);

    if (name == "fLaC")
        return maxFlacSamples (stream);

    if ((name == "OggS" && ! oggLinksAgree (stream)) || (name == "FORM" && ! aiffDescribesItsSound (stream))
        || ((name == "RIFF" || name == "RF64") && ! wavTablesFit (stream)))
        return {};

    return noBound;
}

} // namespace containercheck
