#include "audio/BarePcmStream.h"

#include "audio/AudioFile.h"

#include <bit>
#include <cstring>
#include <limits>
#include <string>

namespace
{

struct Chunk
{
    juce::int64 start = 0, length = 0; // content, in bytes; the stated length may exceed the file
};

std::string readName (juce::InputStream& stream)
{
    std::string name (4, '\0');
    stream.read (name.data(), 4);
    return name;
}

/** Visits the chunks of a file. A chunk starts with its name and length, and is padded to an even number of bytes.

    @param visit  receives a chunk's name and the chunk; returns false to stop
*/
template <typename Visit>
void visitChunks (juce::InputStream& stream, std::endian order, juce::int64 start, juce::int64 end, Visit&& visit)
{
    end = juce::jmin (end, stream.getTotalLength());

    while (start + 8 <= end)
    {
        stream.setPosition (start);
        const auto name = readName (stream);
        const auto length =
            static_cast<juce::uint32> (order == std::endian::big ? stream.readIntBigEndian() : stream.readInt());

        if (! visit (name, Chunk { start + 8, length }))
            return;

        start += 8 + juce::int64 { length } + (length & 1);
    }
}

/** @returns the first bytes of a chunk, no more than `most`, padded to an even length; empty if fewer than `least` */
juce::MemoryBlock readStart (juce::InputStream& stream, const Chunk& chunk, juce::int64 least, juce::int64 most)
{
    juce::MemoryBlock bytes;
    stream.setPosition (chunk.start);

    if (chunk.length >= least)
        stream.readIntoMemoryBlock (bytes, static_cast<ssize_t> (juce::jmin (chunk.length, most)));

    if (static_cast<juce::int64> (bytes.getSize()) < least)
        return {};

    bytes.ensureSize (bytes.getSize() + (bytes.getSize() & 1), true);
    return bytes;
}

bool isSafeNumberOfChannels (int numChannels)
{
    return numChannels > 0 && numChannels <= audiofile::maxChannels;
}

/** Checks a "fmt " chunk: type, channels, sample rate, bytes per second, bytes per frame and bits per sample. */
bool isSafeWavFormat (const juce::MemoryBlock& format)
{
    juce::MemoryInputStream fields (format, false);
    fields.skipNextBytes (2);
    const auto numChannels = fields.readShort();
    const auto rate = fields.readInt();
    fields.skipNextBytes (6);
    const auto bits = static_cast<juce::uint16> (fields.readShort());

    return isSafeNumberOfChannels (numChannels) && rate > 0 && bits <= 64;
}

} // namespace

std::unique_ptr<BarePcmStream> BarePcmStream::open (const juce::File& file)
{
    std::unique_ptr<BarePcmStream> stream (new BarePcmStream (file));

    if (! stream->file.openedOk())
        return nullptr;

    const auto name = readName (stream->file);
    const auto isWav = name == "RIFF" || name == "RF64";
    return (isWav && stream->openWav()) || (name == "FORM" && stream->openAiff()) ? std::move (stream) : nullptr;
}

bool BarePcmStream::openWav()
{
    constexpr auto plainFormat = 16, extensibleFormat = 40, channelMaskAt = 20; // bytes

    file.setPosition (0);
    const auto is64Bit = readName (file) == "RF64";
    auto end = juce::int64 { static_cast<juce::uint32> (file.readInt()) } + 8;

    if (readName (file) != "WAVE")
        return false;

    juce::int64 length64 = 0;

    if (is64Bit)
    {
        if (readName (file) != "ds64" || file.readInt() < 28)
            return false;

        const auto size = file.readInt64();
        end = juce::jlimit (juce::int64 {}, std::numeric_limits<juce::int64>::max() - 8, size) + 8;
        length64 = juce::jmax (juce::int64 {}, file.readInt64());
    }

    juce::MemoryBlock format;

    visitChunks (file, std::endian::little, 12, end,
                 [&] (const std::string& name, const Chunk& chunk)
                 {
                     if (name == "fmt " && format.isEmpty())
                         format = readStart (file, chunk, plainFormat, extensibleFormat);

                     if (name == "data")
                     {
                         soundStart = chunk.start;
                         soundLength = is64Bit ? length64 : chunk.length;
                     }

                     return format.isEmpty() || soundStart == 0;
                 });

    if (format.isEmpty() || soundStart == 0 || ! isSafeWavFormat (format))
        return false;

    // Kelvane ignores speaker positions. Clearing them keeps JUCE from trusting damaged ones.
    if (format.getSize() >= channelMaskAt + 4)
        std::memset (format.begin() + channelMaskAt, 0, 4);

    soundLength = juce::jmin (soundLength, file.getTotalLength() - soundStart);

    juce::MemoryOutputStream out (header, false);
    out << "RF64";
    out.writeInt (-1);
    out << "WAVEds64";
    out.writeInt (28);
    out.writeInt64 (static_cast<juce::int64> (format.getSize()) + 56 + soundLength);
    out.writeInt64 (soundLength);
    out.writeInt64 (0); // number of samples, which decoders work out themselves
    out.writeInt (0);   // number of other chunks whose sizes follow
    out << "fmt ";
    out.writeInt (static_cast<int> (format.getSize()));
    out << format;
    out << "data";
    out.writeInt (-1);
    return true;
}

bool BarePcmStream::openAiff()
{
    constexpr auto plainFormat = 18, compressedFormat = 22; // bytes

    file.setPosition (4);
    const auto end = juce::int64 { file.readIntBigEndian() } + 8;
    const auto type = readName (file);

    if (type != "AIFF" && type != "AIFC")
        return false;

    juce::MemoryBlock format;

    visitChunks (file, std::endian::big, 12, end,
                 [&] (const std::string& name, const Chunk& chunk)
                 {
                     if (name == "COMM" && format.isEmpty())
                         format = readStart (file, chunk, plainFormat, compressedFormat);

                     if (name == "SSND")
                     {
                         file.setPosition (chunk.start);
                         soundStart = chunk.start + 8 + static_cast<juce::uint32> (file.readIntBigEndian());
                         soundLength = chunk.length;
                     }

                     return format.isEmpty() || soundStart == 0;
                 });

    if (format.isEmpty() || soundStart == 0
        || ! isSafeNumberOfChannels (static_cast<juce::int16> (juce::ByteOrder::bigEndianShort (format.getData()))))
        return false;

    soundLength = juce::jmax (juce::int64 {}, juce::jmin (soundLength, file.getTotalLength() - soundStart));

    juce::MemoryOutputStream out (header, false);
    out << "FORM";
    out.writeIntBigEndian (static_cast<int> (format.getSize() + 28));
    out << juce::String (type) << "COMM";
    out.writeIntBigEndian (static_cast<int> (format.getSize()));
    out << format;
    out << "SSND";
    out.writeIntBigEndian (static_cast<int> (soundLength));
    out.writeInt64 (0); // offset and block size
    return true;
}

bool BarePcmStream::setPosition (juce::int64 newPosition)
{
    position = juce::jlimit (juce::int64 {}, getTotalLength(), newPosition);
    return position == newPosition;
}

int BarePcmStream::read (void* dest, int maxBytes)
{
    auto* const bytes = static_cast<char*> (dest);
    const auto headerSize = static_cast<juce::int64> (header.getSize());
    const auto numFromHeader =
        static_cast<int> (juce::jlimit (juce::int64 {}, juce::int64 { maxBytes }, headerSize - position));

    if (numFromHeader > 0)
        std::memcpy (bytes, header.begin() + position, static_cast<size_t> (numFromHeader));

    position += numFromHeader;
    const auto numOfSound =
        static_cast<int> (juce::jmin (juce::int64 { maxBytes - numFromHeader }, getTotalLength() - position));

    if (numOfSound <= 0)
        return numFromHeader;

    file.setPosition (soundStart + position - headerSize);
    const auto numRead = juce::jmax (0, file.read (bytes + numFromHeader, numOfSound));
    position += numRead;
    return numFromHeader + numRead;
}
