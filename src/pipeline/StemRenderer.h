#pragma once

#include "pipeline/PipelineConfig.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <functional>
#include <utility>
#include <vector>

/** The last stage of a run: turns each gathered audio file into a finished WAV file.

    Files are read, changed and written one after the other, each whole in memory. A file's rate and
    channel count are its own and carry over to its output.
*/
class StemRenderer
{
public:
    using NamedFile = std::pair<juce::String, juce::File>;

    /** What the stage is told by the stages before it. */
    struct Job
    {
        std::vector<NamedFile> stemFiles; /**< stem names and their audio, in the order of rendering */
        double ratio = 1.0;               /**< the speed ratio, from 0.25 to 4; of pitch in AdjustMode::Key */
        juce::String baseName;            /**< the song's name, which begins every output file's */
        juce::String statusSuffix;        /**< ends every status text */
        juce::File outDir;                /**< exists */
    };

    std::function<void (double fraction, const juce::String& text)> onProgress;
    std::function<bool()> shouldCancel; /**< asked before each file; a file once begun is finished */

    /** Loses no older file of the user's: one is replaced only by a complete one, and a write that fails is an error.
        Otherwise older files are deleted first and such a write goes unnoticed.
    */
    bool checksWrites = false;

    /** @param config  read for adjustMode, stretchMode, sampleRate and bitDepth alone */
    StemRenderer (const PipelineConfig& config, Job job);

    /** @param message  receives the text for the user on a failure, and is left alone on a cancellation
        @returns true when all files are written
        @throws std::bad_alloc  if a file's audio does not fit into memory
    */
    bool render (juce::String& message);

    /** Counts the files written so far. */
    int getFilesWritten() const { return filesWritten; }

private:
    bool renderFile (juce::AudioFormatManager& formats, const NamedFile& entry, juce::String& message);
    juce::AudioBuffer<float> changeSpeed (juce::AudioBuffer<float> buffer) const;

    const PipelineConfig& config;
    const Job job;
    int filesWritten = 0;
};
