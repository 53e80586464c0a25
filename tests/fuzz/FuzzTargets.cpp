#include "fuzz/FuzzTargets.h"

#include "audio/AudioFile.h"
#include "pipeline/Detection.h"
#include "pipeline/Utf8.h"
#include "pipeline/WorkerOutput.h"
#include "render/CommandLine.h"

#if KELVANE_HAS_FFMPEG
#include "audio/FFmpegAudioFormat.h"
#endif

#include <cmath>
#include <stdexcept>
#include <string>

static void require (bool condition, const char* promise)
{
    if (! condition)
        throw std::logic_error (promise);
}

template <typename Format>
static void readSong (std::string_view bytes)
{
    // A file may state any length. Reading a very long one whole would only test the machine's memory.
    constexpr auto maxSamplesToHold = juce::int64 { 1 } << 24;

    juce::AudioFormatManager formats;
    formats.registerFormat (new Format(), true);

    const juce::TemporaryFile song (formats.getKnownFormat (0)->getFileExtensions()[0]);
    song.getFile().replaceWithData (bytes.data(), bytes.size());
    const auto reader = audiofile::open (formats, song.getFile());

    if (reader == nullptr)
        return;

    const auto numChannels = static_cast<int> (reader->numChannels);
    const auto length = reader->lengthInSamples; // reading may change it
    require (numChannels > 0 && reader->numChannels <= audiofile::maxChannels, "1 to 64 channels");
    require (reader->sampleRate > 0 && std::isfinite (reader->sampleRate), "a sample rate");
    require (reader->bitsPerSample > 0 && reader->bitsPerSample <= 32, "a depth that can be converted");
    require (length >= 0, "a length");

    if (length * numChannels <= maxSamplesToHold)
        return require (audiofile::readWhole (*reader).getNumSamples() == length, "the stated length");

    juce::AudioBuffer<float> block (numChannels, 1 << 16);

    for (const auto start : { juce::int64 {}, length / 2, length - 100 })
        reader->read (&block, 0, block.getNumSamples(), start, true, true);
}

/** The first byte gives the size of the blocks in which the remaining bytes arrive. */
static void readWorkerOutput (std::string_view bytes)
{
    if (bytes.empty())
        return;

    const auto blockSize = std::max (size_t { 1 }, size_t { static_cast<unsigned char> (bytes.front()) });
    std::string pending, output, atOnce (bytes.substr (1)), outputAtOnce;
    splitLines (atOnce, outputAtOnce, {}, true);

    for (size_t i = 1; i < bytes.size(); i += blockSize)
    {
        pending += bytes.substr (i, blockSize);
        splitLines (pending, output, {}, false);
    }

    splitLines (pending, output, {}, true);
    require (output == outputAtOnce && pending.empty(), "the same lines, however they arrive");

    const auto text = decodeUtf8 (output);
    require (text.toRawUTF8() == output, "lines of well-formed UTF-8");
    findMarker (text, "WAV_PATH::");
    require (tailOf (text, 700).length() <= 703, "a short tail");
}

static void parseDetection (std::string_view bytes)
{
    const auto detection = Detection::fromJson (decodeUtf8 (bytes).trim());
    require (detection.key >= 0 && detection.key < PipelineConfig::numKeys, "a key");
}

/** Each line is an argument. */
static void parseCommandLine (std::string_view bytes)
{
    CommandLine commandLine;
    juce::String error;

    if (! commandLine.parse (juce::StringArray::fromLines (decodeUtf8 (bytes)), error))
        return require (error.isNotEmpty() && ! error.containsChar ('\n'), "an error of one line");

    require (error.isEmpty(), "no error");

    if (commandLine.action != CommandLine::Action::render)
        return;

    const auto& settings = commandLine.settings;
    require (! commandLine.songs.empty() && settings.outputDir != juce::File(), "songs and an output folder");
    require (settings.wantsStems() || settings.fullSong, "something to render");
    require (std::isfinite (settings.percent) && std::isfinite (settings.fromBpm) && std::isfinite (settings.toBpm),
             "finite numbers");
    require (settings.sampleRate == 0 || (settings.sampleRate >= 8000 && settings.sampleRate <= 384000), "a rate");
    require (settings.bitDepth == 16 || settings.bitDepth == 24 || settings.bitDepth == 32, "a depth");
}

constinit const std::array<FuzzTarget, 8> fuzzTargets { {
    { "wav", readSong<juce::WavAudioFormat> },
    { "aiff", readSong<juce::AiffAudioFormat> },
    { "flac", readSong<juce::FlacAudioFormat> },
    { "ogg", readSong<juce::OggVorbisAudioFormat> },
#if KELVANE_HAS_FFMPEG
    { "ffmpeg", readSong<FFmpegAudioFormat> },
#else
    { "ffmpeg", [] (std::string_view) {} },
#endif
    { "worker-output", readWorkerOutput },
    { "detection", parseDetection },
    { "command-line", parseCommandLine },
} };
