#pragma once

#include <juce_audio_formats/juce_audio_formats.h>

/** Reads and writes whole audio files. */
namespace audiofile
{

/** The maximum number of samples per channel that are read from a file. Further samples are left out.

    JUCE's buffer lengths are ints, so this must stay below 2^31.
*/
constexpr juce::int64 maxSamples = juce::int64 { 1 } << 30;

/** The maximum number of channels in a file. */
constexpr int maxChannels = 64;

/** Registers JUCE's basic formats, then FFmpegAudioFormat if the build includes it. */
void registerFormats (juce::AudioFormatManager& formats);

/** Opens a file with the first of the manager's formats that can read it. The reader carries no metadata from WAV
    and AIFF files.

    A reader of WAV, AIFF, FLAC or Ogg Vorbis reports no more samples than the file can hold. The header may claim more,
    for example if the recording was cut off or piped.

    @returns null if the file is missing, empty or unsafe to decode, or if no format can read it. No format reads more
             than maxChannels channels, or PCM of any depth except 8, 16, 24 or 32 bits.
*/
std::unique_ptr<juce::AudioFormatReader> open (juce::AudioFormatManager& formats, const juce::File& file);

/** Reads all channels, with at most maxSamples samples each. If reading fails, the result is silent.

    @throws std::bad_alloc  if the audio does not fit into memory
*/
juce::AudioBuffer<float> readWhole (juce::AudioFormatReader& reader);

/** Writes a WAV file. Deletes an existing file of that name first.

    Errors during writing, such as a full disk, are not reported. The file is then incomplete.

    @param bitDepth  16 or 24: integer PCM, clipped at full scale; 32: floating point, unclipped
    @param error     receives the message for the user
    @returns false if the file could not be opened, or if WAV does not support the depth or channel count
*/
bool writeWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
               juce::String& error);

/** Writes a WAV file as writeWav() does, but reports every error, and keeps an existing file until the new one is
    complete.

    Writes to a hidden file in the same folder, and replaces the target in one step once that file is on the disk at
    full length. The hidden file's name depends only on the target's name, so the next attempt replaces a hidden file
    that a killed attempt has left behind.

    @param error  receives the message for the user, with the system's reason if it gives one
    @returns false if the file could not be written; an existing file is then unchanged
*/
bool replaceWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
                 juce::String& error);

} // namespace audiofile
