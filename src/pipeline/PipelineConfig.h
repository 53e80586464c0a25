#pragma once

#include <juce_core/juce_core.h>

#include <array>

/** How a run applies the speed ratio. */
enum class StretchMode : int
{
    TempoOnly = 0,    /**< keeps the pitch; with AdjustMode::Key, keeps the tempo and changes the pitch */
    TempoAndPitch = 1 /**< changes both together, as a tape machine does */
};

/** How the user specifies the speed ratio. */
enum class AdjustMode : int
{
    Percentage = 0,
    Bpm = 1,
    Key = 2
};

/** The settings of one run: the source, the stems to render, the change of tempo or key, and the output.

    A plain record without invariants. Each run works on its own copy.
*/
struct PipelineConfig
{
    static constexpr int numStems = 4;
    static constexpr int numKeys = 12;
    static constexpr auto defaultModel = "htdemucs";

    /** In the order of the flags in `stems`. */
    static const std::array<const char*, numStems> stemNames;

    /** A key is an index into this table, from 0 "C" to 11 "B". */
    static const std::array<const char*, numKeys> keyNames;

    bool wantsStems() const;

    bool useUrl = false;
    juce::String url;       /**< used if useUrl is true */
    juce::File inputFile;   /**< used if useUrl is false */
    juce::File cachedAudio; /**< the download of an earlier analysis of the same URL; used if it exists */

    bool stems[numStems] = {};
    bool fullSong = false;
    juce::String modelName { defaultModel };

    StretchMode stretchMode = StretchMode::TempoOnly;
    AdjustMode adjustMode = AdjustMode::Percentage;
    double percent = 0.0;

    double fromBpm = 0.0;
    double toBpm = 0.0;
    bool autoBpm = false; /**< detect the source tempo and ignore fromBpm */

    int fromKey = 0;
    int toKey = 0;
    bool autoKey = false; /**< detect the source key and ignore fromKey */

    juce::File outputDir;
    int sampleRate = 0; /**< of the output, in Hz; 0 keeps the source's */
    int bitDepth = 24;  /**< 16 or 24 for integer PCM, 32 for floating point */
};
