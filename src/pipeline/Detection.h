#pragma once

#include <juce_core/juce_core.h>

/** What analyze.py has found out about a song. */
struct Detection
{
    /** @param json  the value of a worker's result; what it lacks, or lacks sense, stays at its default */
    static Detection fromJson (const juce::String& json);

    double bpm = 0.0;
    int key = 0; /**< an index into PipelineConfig::keyNames, always within it */
};
