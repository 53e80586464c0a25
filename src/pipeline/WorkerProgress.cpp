#include "pipeline/WorkerProgress.h"

namespace workerprogress
{

static std::optional<juce::String> readTaggedLine (const juce::String& line, const char* tag)
{
    if (! line.startsWith (tag))
        return {};

    return line.fromFirstOccurrenceOf ("]", false, false).trim();
}

std::optional<juce::String> readDownloadLine (const juce::String& line)
{
    return readTaggedLine (line, "[download]");
}

std::optional<juce::String> readSetupLine (const juce::String& line)
{
    return readTaggedLine (line, "[setup]");
}

std::optional<juce::String> readPlanLine (const juce::String& line)
{
    return readTaggedLine (line, "[plan]");
}

std::optional<int> readBarLine (const juce::String& line)
{
    const auto percentSign = line.indexOfChar ('%');

    if (percentSign < 1 || line[percentSign + 1] != '|')
        return {};

    auto firstDigit = percentSign;

    while (firstDigit > 0 && juce::CharacterFunctions::isDigit (line[firstDigit - 1]))
        --firstDigit;

    if (firstDigit == percentSign)
        return {};

    return juce::jlimit (0, 100, line.substring (firstDigit, percentSign).getIntValue());
}

} // namespace workerprogress
