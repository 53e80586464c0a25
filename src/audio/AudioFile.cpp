#include "audio/AudioFile.h"

#include "JuceCompatibility.h"
#include "audio/BarePcmStream.h"
#include "audio/ContainerCheck.h"
#include "audio/FFmpegAudioFormat.h"
#include "audio/LargeBuffer.h"
#include "audio/MemoryLimit.h"

#include <limits>

namespace audiofile
{

static bool isPcm (const juce::String& formatName)
{
    return formatName == juce::WavAudioFormat().getFormatName()
           || formatName == juce::AiffAudioFormat().getFormatName();
}

/** @returns false for bit depths at which JUCE's PCM readers would leave the samples uninitialised */
static bool canConvertPcm (const juce::AudioFormatReader& reader)
{
    const auto bits = reader.bitsPerSample;
    return reader.usesFloatingPointData ? bits == 32 : bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

static std::unique_ptr<juce::InputStream> openStream (const juce::AudioFormat& format, const juce::File& file)
{
    if (isPcm (format.getFormatName()))
        return BarePcmStream::open (file);

    return file.createInputStream();
}

/** @returns null if the format cannot read the file reliably */
static std::unique_ptr<juce::AudioFormatReader> createReader (juce::AudioFormat& format, const juce::File& file)
{
    if (! format.canHandleFile (file))
        return nullptr;

    auto stream = openStream (format, file);

    if (stream == nullptr)
        return nullptr;

    std::unique_ptr<juce::AudioFormatReader> reader (format.createReaderFor (stream.release(), true));
    const auto isFit = reader != nullptr && reader->numChannels <= maxChannels
                       && (! isPcm (reader->getFormatName()) || canConvertPcm (*reader));
    return isFit ? std::move (reader) : nullptr;
}

/** @returns the most samples per channel that the file can hold; the largest int64 if the reader's own length
    is reliable; nothing if the file is unsafe to decode
*/
static std::optional<juce::int64> samplesHeld (const juce::AudioFormatReader& reader, const juce::File& file)
{
    juce::FileInputStream stream (file);

    if (reader.getFormatName() == "FLAC file")
        return containercheck::countFlacSamples (stream);

    if (reader.getFormatName() == "Ogg-Vorbis file")
        return containercheck::maxVorbisSamples (stream);

    return std::numeric_limits<juce::int64>::max();
}

void registerFormats (juce::AudioFormatManager& formats)
{
    formats.registerBasicFormats();
#if KELVANE_HAS_FFMPEG
    formats.registerFormat (new FFmpegAudioFormat(), false);
#endif
}

std::unique_ptr<juce::AudioFormatReader> open (juce::AudioFormatManager& formats, const juce::File& file)
{
    // A pipe has no size either, and opening one would block until another process opens its other end.
    if (! file.existsAsFile() || file.getSize() == 0)
        return nullptr;

    for (auto* const format : formats)
    {
        if (auto reader = createReader (*format, file))
        {
            const auto held = samplesHeld (*reader, file);

            if (! held)
                return nullptr;

            reader->lengthInSamples = juce::jlimit (juce::int64 {}, *held, reader->lengthInSamples);
            return reader;
        }
    }

    return nullptr;
}

juce::AudioBuffer<float> readWhole (juce::AudioFormatReader& reader)
{
    const auto length = static_cast<int> (juce::jmin (reader.lengthInSamples, maxSamples));
    requireMemoryFor (static_cast<double> (length) * reader.numChannels);

    auto buffer = makeLargeBuffer (static_cast<int> (reader.numChannels), length);

    if (! reader.read (&buffer, 0, length, 0, true, true))
        buffer.clear();

    return buffer;
}

static juce::String notOpened (const juce::File& file)
{
    return "Could not open output file for writing:\n" + file.getFullPathName();
}

/** @param named  the file to name in an error message
    @returns null if the stream could not be opened, or if WAV does not support the depth or channel count
*/
static std::unique_ptr<juce::AudioFormatWriter> createWriter (std::unique_ptr<juce::FileOutputStream> fileStream,
                                                              int numChannels, double sampleRate, int bitDepth,
                                                              const juce::File& named, juce::String& error)
{
    if (fileStream == nullptr)
    {
        error = notOpened (named);
        return nullptr;
    }

    using Options = compat::AudioFormatWriterOptions;
    const auto options =
        Options {}
            .withSampleRate (sampleRate)
            .withNumChannels (numChannels)
            .withBitsPerSample (bitDepth)
            .withSampleFormat (bitDepth == 32 ? Options::SampleFormat::floatingPoint : Options::SampleFormat::integral);

    compat::WavAudioFormat wav;
    std::unique_ptr<juce::OutputStream> stream = std::move (fileStream);
    auto writer = wav.createWriterFor (stream, options);

    if (writer == nullptr)
        error = "Could not create a " + juce::String (bitDepth) + "-bit WAV writer.";

    return writer;
}

constexpr auto streamBufferSize = 32768;

bool writeWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
               juce::String& error)
{
    file.deleteFile();
    const auto writer = createWriter (file.createOutputStream (streamBufferSize), buffer.getNumChannels(), sampleRate,
                                      bitDepth, file, error);

    if (writer == nullptr)
        return false;

    writer->writeFromAudioSampleBuffer (buffer, 0, buffer.getNumSamples());
    writer->flush();
    return true;
}

/** @returns true if the file's header states as many samples as the buffer has and the file is long enough for them */
static bool holds (const juce::File& file, const juce::AudioBuffer<float>& buffer, int bitDepth)
{
    const std::unique_ptr<juce::AudioFormatReader> reader (
        juce::WavAudioFormat().createReaderFor (file.createInputStream().release(), true));
    const auto numBytes = static_cast<juce::int64> (buffer.getNumSamples()) * buffer.getNumChannels() * bitDepth / 8;
    return reader != nullptr && reader->lengthInSamples == buffer.getNumSamples() && file.getSize() > numBytes;
}

/** @param reason  receives the system's reason for a failure, if it gives one */
static bool writeAll (const juce::File& file, const juce::File& named, const juce::AudioBuffer<float>& buffer,
                      double sampleRate, int bitDepth, juce::String& error, juce::String& reason)
{
    auto stream = std::make_unique<juce::FileOutputStream> (file, streamBufferSize);
    auto* const opened = stream.get();

    if (opened->failedToOpen())
    {
        reason = opened->getStatus().getErrorMessage();
        return false;
    }

    const auto writer = createWriter (std::move (stream), buffer.getNumChannels(), sampleRate, bitDepth, named, error);

    if (writer == nullptr)
        return false;

    const auto written = writer->writeFromAudioSampleBuffer (buffer, 0, buffer.getNumSamples()) && writer->flush();

    // A partial write gives no reason. Another write, which finds no space at all, gives the system's.
    if (! written && opened->getStatus().wasOk())
    {
        opened->setPosition (file.getSize());
        opened->writeRepeatedByte (0, 2 * streamBufferSize);
    }

    reason = opened->getStatus().getErrorMessage();
    return written && reason.isEmpty();
}

bool replaceWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
                 juce::String& error)
{
    const auto name = ".kelvane-" + juce::String::toHexString (file.getFileName().hashCode64()) + ".part";
    const auto unfinished = file.getSiblingFile (name);
    unfinished.deleteFile();

    if (file.isDirectory())
    {
        error = notOpened (file);
        return false;
    }

    juce::String reason;

    if (writeAll (unfinished, file, buffer, sampleRate, bitDepth, error, reason) && holds (unfinished, buffer, bitDepth)
        && unfinished.replaceFileIn (file))
        return true;

    unfinished.deleteFile();

    if (error.isEmpty())
        error = "Could not write the output file:\n" + file.getFullPathName() + "\n"
                + (reason.isEmpty() ? juce::String ("The disk may be full or disconnected") : reason)
                + ". An older file of that name is unchanged. Free some space or choose another folder.";

    return false;
}

} // namespace audiofile
