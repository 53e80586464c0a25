#pragma once

#include <juce_core/juce_core.h>

/** A song's tempo and key, as analyze.py detects them. */
struct Detection
{
    /** Parses the JSON text of a result line. A property that is missing or invalid keeps its default.

        @param json  at most 1000 bytes of ASCII; any other text gives the defaults
    */
    static Detection fromJson (const juce::String& json);

    double bpm = 0.0;
    int key = 0; /**< a valid index into PipelineConfig::keyNames */
};
