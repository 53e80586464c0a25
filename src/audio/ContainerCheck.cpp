#include "audio/ContainerCheck.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <string>
#include <string_view>

namespace containercheck
{

namespace
{

juce::uint8 byteAt (std::string_view bytes, size_t index)
{
    return index < bytes.size() ? static_cast<juce::uint8> (bytes[index]) : juce::uint8 {};
}

/** Visits every occurrence of a mark.

    @param maxLength  the number of bytes that visit needs, counted from the start of the mark
    @param visit      receives these bytes, fewer at the end of the stream; returns how many of them to skip, at least 1
*/
template <typename Visit>
void findAll (juce::InputStream& stream, std::string_view mark, size_t maxLength, Visit&& visit)
{
    constexpr size_t blockSize = 1 << 16;
    std::string window;

    for (auto isAtEnd = false; ! isAtEnd;)
    {
        const auto oldSize = window.size();
        window.resize (oldSize + blockSize);
        const auto numRead = stream.read (window.data() + oldSize, static_cast<int> (blockSize));
        window.resize (oldSize + static_cast<size_t> (juce::jmax (0, numRead)));
        isAtEnd = numRead <= 0;

        auto at = window.find (mark);

        while (at != std::string::npos && (isAtEnd || at + maxLength <= window.size()))
            at = window.find (mark, at + visit (std::string_view (window).substr (at, maxLength)));

        // The next block may complete a mark that begins at the end of this one.
        window.erase (0, at != std::string::npos ? at : window.size() - std::min (window.size(), mark.size() - 1));
    }
}

/** Computes the CRC-8 of a FLAC frame's header: polynomial x^8 + x^2 + x + 1, initial value 0. */
juce::uint8 crc8 (std::string_view bytes)
{
    const auto add = [] (unsigned crc, char byte)
    {
        crc ^= static_cast<juce::uint8> (byte);

        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80) != 0 ? ((crc << 1) ^ 0x07) & 0xff : crc << 1;

        return crc;
    };

    return static_cast<juce::uint8> (std::accumulate (bytes.begin(), bytes.end(), 0u, add));
}

struct FlacFrame
{
    int numSamples = 0; // 0 if there is no frame
    size_t minSize = 1; // bytes
};

/** Reads the header of a FLAC frame (RFC 9639, section 9.1). */
FlacFrame parseFlacFrame (std::string_view bytes)
{
    const auto sizeCode = byteAt (bytes, 2) >> 4, rateCode = byteAt (bytes, 2) & 15;
    const auto channelCode = byteAt (bytes, 3) >> 4;
    const auto lengthOfNumber = std::countl_one (byteAt (bytes, 4));

    if ((byteAt (bytes, 1) & 0xfe) != 0xf8 || sizeCode == 0 || rateCode == 15 || channelCode > 10 || lengthOfNumber == 1
        || lengthOfNumber == 8)
        return {};

    auto size = 4 + static_cast<size_t> (juce::jmax (1, lengthOfNumber));
    auto numSamples = sizeCode == 1 ? 192 : sizeCode < 6 ? 144 << sizeCode : 1 << sizeCode;

    if (sizeCode == 6 || sizeCode == 7)
    {
        numSamples = byteAt (bytes, size++);

        if (sizeCode == 7)
            numSamples = (numSamples << 8) + byteAt (bytes, size++);

        ++numSamples;
    }

    if (rateCode >= 12)
        size += rateCode == 12 ? 1 : 2;

    if (size >= bytes.size() || crc8 (bytes.substr (0, size)) != byteAt (bytes, size))
        return {};

    // Each subframe has at least one byte, and the frame ends with a two-byte checksum.
    const auto numChannels = static_cast<size_t> (channelCode < 8 ? channelCode + 1 : 2);
    return { numSamples, size + 1 + numChannels + 2 };
}

struct VorbisFormat
{
    juce::uint8 numChannels = 0;
    juce::uint32 sampleRate = 0;

    bool operator== (const VorbisFormat&) const = default;
};

} // namespace

juce::int64 countFlacSamples (juce::InputStream& stream)
{
    constexpr size_t longestHeader = 16; // bytes
    juce::int64 numSamples = 0;

    findAll (stream, "\xff", longestHeader,
             [&] (std::string_view bytes)
             {
                 const auto frame = parseFlacFrame (bytes);
                 numSamples += frame.numSamples;
                 return frame.minSize;
             });

    return numSamples;
}

/** An Ogg page starts with 27 bytes, the last of which is its number of segments. The lengths of the segments follow,
    in one byte each. A segment shorter than 255 bytes ends a packet. The first packet of a Vorbis stream states its
    format.
*/
std::optional<juce::int64> maxVorbisSamples (juce::InputStream& stream)
{
    constexpr size_t headerSize = 27, maxSegments = 255, formatSize = 30;
    constexpr auto beginsStream = 2, lossAllowance = 2;

    std::optional<VorbisFormat> first;
    auto linksAgree = true;
    juce::int64 numPackets = 0;
    auto longestBlock = 0; // samples

    findAll (stream, "OggS", headerSize + maxSegments + formatSize,
             [&] (std::string_view page)
             {
                 const auto numSegments = size_t { byteAt (page, headerSize - 1) };
                 const auto body = juce::jmin (headerSize + numSegments, page.size());
                 const auto segments = page.substr (juce::jmin (headerSize, body), numSegments);
                 numPackets += std::count_if (segments.begin(), segments.end(),
                                              [] (char length) { return length != '\0' && length != '\xff'; });

                 const auto format = page.substr (body);

                 if ((byteAt (page, 5) & beginsStream) != 0 && format.size() >= formatSize
                     && format.substr (0, 7) == "\x01vorbis")
                 {
                     const VorbisFormat stated { byteAt (format, 11),
                                                 juce::ByteOrder::littleEndianInt (format.data() + 12) };
                     first = first.value_or (stated);
                     linksAgree = linksAgree && stated == *first;
                     longestBlock = juce::jmax (longestBlock, 1 << (byteAt (format, 28) >> 4));
                 }

                 return size_t { 4 };
             });

    if (! linksAgree)
        return {};

    // Blocks overlap by half, so a packet adds at most half of the longest block.
    return lossAllowance * numPackets * (longestBlock / 2);
}

} // namespace containercheck
