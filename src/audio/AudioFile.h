#pragma once

#include <juce_audio_formats/juce_audio_formats.h>

/** Whole audio files, in and out. */
namespace audiofile
{

/** The longest audio that is read, in samples per channel. The rest is left out.

    Lengths in memory are ints, as in JUCE, so it must stay below 2^31.
*/
constexpr juce::int64 maxSamples = juce::int64 { 1 } << 30;

/** The most channels that a file may have. */
constexpr int maxChannels = 64;

/** Registers the basic formats and, after them, all others that the build has. */
void registerFormats (juce::AudioFormatManager& formats);

/** Opens a file with the first of the manager's formats that can read it. The reader has no metadata of WAV and AIFF
    files.

    The length that a basic format's reader states is no more than the file can hold. The header of a recording that was
    cut off or piped may claim more.

    @returns null for a file that is missing, empty or damaged in its structure, or that no format can read: an unknown
             one, more than maxChannels channels, or PCM other than 8, 16, 24 or 32 bits
*/
std::unique_ptr<juce::AudioFormatReader> open (juce::AudioFormatManager& formats, const juce::File& file);

/** All channels and all samples, but at most maxSamples of them.

    @throws std::bad_alloc  if they cannot be held in memory
*/
juce::AudioBuffer<float> readWhole (juce::AudioFormatReader& reader);

/** Writes a WAV file, in place of an older one of that name, which is deleted first.

    Anything that cannot be written, because the disk is full, say, is lost without an error.

    @param bitDepth  16 or 24: integer PCM, clipped at full scale; 32: floating point, unclipped
    @param error     receives the message for the user
    @returns false if the file could not be opened, or if there is no WAV of that depth or channel count
*/
bool writeWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
               juce::String& error);

/** Writes a WAV file as writeWav() does, but loses nothing: an older file of that name is replaced in one step, only
    when the new one is complete, on the disk and as long as its header says. Until then the new one lies beside it,
    under a hidden name that depends only on the file's, so that the next attempt replaces what a killed one has left.

    @param error  receives the message for the user, with the reason that the system gives
    @returns false if the file could not be written; the older one is then unchanged
*/
bool replaceWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
                 juce::String& error);

} // namespace audiofile
