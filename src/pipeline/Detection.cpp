#include "pipeline/Detection.h"

#include "pipeline/PipelineConfig.h"

Detection Detection::fromJson (const juce::String& json)
{
    const auto value = juce::JSON::parse (json);

    Detection detection;
    detection.bpm = static_cast<double> (value.getProperty ("bpm", 0.0));
    detection.key =
        juce::jlimit (0, PipelineConfig::numKeys - 1, static_cast<int> (value.getProperty ("key_index", 0)));
    return detection;
}
