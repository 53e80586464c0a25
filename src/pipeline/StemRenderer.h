#pragma once

#include "pipeline/PipelineConfig.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <functional>
#include <vector>

/** The last stage of a run: turns each audio file into a finished WAV file.

    Reads, changes and writes one file after the other, each as a whole in memory. The output keeps its file's sample
    rate, unless the configuration sets one, and its number of channels.
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
        double ratio = 1.0;         /**< from 0.25 to 4, of the speed; of the pitch with AdjustMode::Key */
        juce::String baseName;      /**< the song's name, with which each output file's name begins */
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

    /** @returns the most samples per channel that any step of the rendering holds, its source and its result together
     */
    double samplesHeldAtOnce (const juce::AudioFormatReader& reader, double targetRate) const;
    juce::AudioBuffer<float> changeSpeed (juce::AudioBuffer<float> buffer) const;

    const PipelineConfig& config;
    const Job job;
    int filesWritten = 0;
};
