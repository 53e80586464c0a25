#include "pipeline/RunChecks.h"

#include "pipeline/SpeedRatio.h"

namespace runchecks
{

bool looksLikeUrl (const juce::String& text)
{
    return text.startsWithIgnoreCase ("http");
}

juce::String checkTempos (const PipelineConfig& config)
{
    if (config.toBpm <= 0.0)
        return "Enter a target (to) BPM.";

    if (config.autoBpm)
        return {};

    if (config.fromBpm <= 0.0)
        return "Enter a source (from) BPM, or enable Auto to detect it.";

    const auto ratio = speedratio::fromTempos (config.fromBpm, config.toBpm);

    if (! (ratio >= speedratio::minimum && ratio <= speedratio::maximum))
        return juce::String ("The BPM ratio is out of range (limited to ") + speedratio::range + ").";

    return {};
}

juce::String prepareOutputFolder (const juce::File& folder)
{
    if (folder == juce::File() || folder.existsAsFile())
        return "Choose a valid output folder.";

    if (! folder.exists() && folder.createDirectory().failed())
        return "Could not create the output folder:\n" + folder.getFullPathName();

    return {};
}

} // namespace runchecks
