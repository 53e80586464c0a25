#include "audio/AudioFile.h"

#include "JuceCompatibility.h"
#include "audio/ContainerCheck.h"
#include "audio/FFmpegAudioFormat.h"
#include "audio/LargeBuffer.h"
#include "audio/MemoryLimit.h"

namespace audiofile
{

constexpr int maxChannels = 64;

static bool isPcm (const juce::AudioFormatReader& reader)
{
    const auto name = reader.getFormatName();
    return name == juce::WavAudioFormat().getFormatName() || name == juce::AiffAudioFormat().getFormatName();
}

/** The depths that the library's PCM readers convert; others would leave the samples unset. */
static bool canConvertPcm (const juce::AudioFormatReader& reader)
{
    const auto bits = reader.bitsPerSample;
    return reader.usesFloatingPointData ? bits == 32 : bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

/** How many samples of a PCM file's claimed length lie within the file. */
static juce::int64 samplesHeld (const juce::AudioFormatReader& reader, juce::AudioFormat& format,
                                const juce::File& file)
{
    // As if the header were audio too.
    const auto estimate = file.getSize() * 8 / (static_cast<juce::int64> (reader.numChannels) * reader.bitsPerSample);
    const std::unique_ptr<juce::MemoryMappedAudioFormatReader> mapped (format.createMemoryMappedReader (file));

    // Some file systems cannot map, and a section may lie behind the end of its file.
    if (mapped != nullptr && mapped->mapEntireFile())
        return juce::jmin (estimate, mapped->getMappedSection().getEnd());

    return estimate;
}

/** @returns null if the format cannot read the file, or not for certain */
static std::unique_ptr<juce::AudioFormatReader> createReader (juce::AudioFormat& format, const juce::File& file)
{
    if (! format.canHandleFile (file))
        return nullptr;

    auto stream = file.createInputStream();

    if (stream == nullptr)
        return nullptr;

    std::unique_ptr<juce::AudioFormatReader> reader (format.createReaderFor (stream.release(), true));
    const auto isFit =
        reader != nullptr && reader->numChannels <= maxChannels && (! isPcm (*reader) || canConvertPcm (*reader));
    return isFit ? std::move (reader) : nullptr;
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
    // No size is no audio, and no file at all if it is a pipe, which would be waited for in vain.
    const auto isFile = file.existsAsFile() && file.getSize() > 0;
    const auto maxSamplesByStructure = isFile ? containercheck::maxSamples (file) : std::nullopt;

    if (! maxSamplesByStructure)
        return nullptr;

    for (auto* const format : formats)
    {
        if (auto reader = createReader (*format, file))
        {
            const auto held = isPcm (*reader) ? samplesHeld (*reader, *format, file) : *maxSamplesByStructure;
            reader->lengthInSamples = juce::jlimit (juce::int64 {}, held, reader->lengthInSamples);
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

bool writeWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
               juce::String& error)
{
    constexpr auto streamBufferSize = 32768;

    file.deleteFile();
    std::unique_ptr<juce::OutputStream> stream = file.createOutputStream (streamBufferSize);

    if (stream == nullptr)
    {
        error = "Could not open output file for writing:\n" + file.getFullPathName();
        return false;
    }

    using Options = compat::AudioFormatWriterOptions;
    const auto options =
        Options {}
            .withSampleRate (sampleRate)
            .withNumChannels (buffer.getNumChannels())
            .withBitsPerSample (bitDepth)
            .withSampleFormat (bitDepth == 32 ? Options::SampleFormat::floatingPoint : Options::SampleFormat::integral);

    compat::WavAudioFormat wav;
    const auto writer = wav.createWriterFor (stream, options);

    if (writer == nullptr)
    {
        error = "Could not create a " + juce::String (bitDepth) + "-bit WAV writer.";
        return false;
    }

    writer->writeFromAudioSampleBuffer (buffer, 0, buffer.getNumSamples());
    writer->flush();
    return true;
}

} // namespace audiofile
