#pragma once

#include "pipeline/PipelineConfig.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <functional>
#include <vector>

/** The last stage of a run: turns each audio file into a finished WAV file.

    Renders one file at a time, and holds all of its audio in memory. The output has the file's number of channels, and
    the file's sample rate unless the configuration sets another.
*/
class StemRenderer
{
public:
    /** One file to render. */
    struct Entry
    {
        juce::String name; /**< of the stem, or "full mix" */
        juce::File audio;
    };

    /** The results of the earlier stages. */
    struct Job
    {
        std::vector<Entry> entries; /**< in the order of rendering */
        double ratio = 1.0;         /**< of the speed, or with AdjustMode::Key of the pitch; see SpeedRatio.h */
        juce::String baseName;      /**< the song's name, which begins each output file's name */
        juce::String statusSuffix;  /**< appended to every status text */
        juce::File outDir;          /**< exists */
    };

    std::function<void (double fraction, const juce::String& text)> onProgress;
    std::function<bool()> shouldCancel; /**< called before each file */

    /** If true, an existing file is replaced only by a complete one, and a failed write is an error. If false, an
        existing file is deleted first, and a failed write goes unnoticed.
    */
    bool checksWrites = false;

    /** @param config  must outlive the renderer, which reads adjustMode, stretchMode, sampleRate and bitDepth */
    StemRenderer (const PipelineConfig& config, Job job);

    /** Renders all entries.
        @param message  receives the text for the user after a failure; unchanged after a cancellation
        @returns true if all files have been written
        @throws std::bad_alloc  if a file's audio does not fit into memory, usually before it is read
    */
    bool render (juce::String& message);

    int getFilesWritten() const { return filesWritten; }

private:
    bool renderFile (juce::AudioFormatManager& formats, const Entry& entry, juce::String& message);
    bool changesSpeed() const;

    /** @returns the most samples per channel that any step of the rendering holds in memory, its input and its output
        together
    */
    double samplesHeldAtOnce (const juce::AudioFormatReader& reader, double targetRate) const;
    juce::AudioBuffer<float> changeSpeed (juce::AudioBuffer<float> buffer) const;

    const PipelineConfig& config;
    const Job job;
    int filesWritten = 0;
};
