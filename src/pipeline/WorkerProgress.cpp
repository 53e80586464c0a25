#include "pipeline/WorkerProgress.h"

namespace workerprogress
{

std::optional<juce::String> readDownloadLine (const juce::String& line)
{
    if (! line.startsWith ("[download]"))
        return {};

    return line.fromFirstOccurrenceOf ("]", false, false).trim();
}

std::optional<int> readSeparationLine (const juce::String& line)
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
