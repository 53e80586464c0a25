#pragma once

#include <juce_core/juce_core.h>

#include <array>

/** How the speed ratio is applied. */
enum class StretchMode : int
{
    TempoOnly = 0,    /**< the pitch stays; with AdjustMode::Key the tempo stays and the pitch changes */
    TempoAndPitch = 1 /**< both change together, as with a tape */
};

/** How the speed ratio is specified. */
enum class AdjustMode : int
{
    Percentage = 0,
    Bpm = 1,
    Key = 2
};

/** Everything about one run: the source, what to render, how to change it, and where to write it.

    A plain record without invariants. A run works from a copy of its own.
*/
struct PipelineConfig
{
    static constexpr int numStems = 4;
    static constexpr int numKeys = 12;

    /** In the order of the flags in stems. */
    static const std::array<const char*, numStems> stemNames;

    /** A key is an index into this table, from 0 "C" to 11 "B". */
    static const std::array<const char*, numKeys> keyNames;

    bool wantsStems() const;

    bool useUrl = false;
    juce::String url;       /**< set if useUrl is */
    juce::File inputFile;   /**< set if useUrl is not */
    juce::File cachedAudio; /**< what an analysis of the same URL has downloaded; used where it exists */

    bool stems[numStems] = {};
    bool fullSong = false;
    juce::String modelName { "htdemucs" };

    StretchMode stretchMode = StretchMode::TempoOnly;
    AdjustMode adjustMode = AdjustMode::Percentage;
    double percent = 0.0;

    double fromBpm = 0.0;
    double toBpm = 0.0;
    bool autoBpm = false; /**< detect the source tempo; fromBpm is then not used */

    int fromKey = 0;
    int toKey = 0;
    bool autoKey = false; /**< detect the source key; fromKey is then not used */

    juce::File outputDir;
    int sampleRate = 0; /**< of the output, in Hz; 0 means the source's */
    int bitDepth = 24;  /**< 16 or 24: integer PCM; 32: floating point */
};
