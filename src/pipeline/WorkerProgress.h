#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** Reads the progress lines of the workers. */
namespace workerprogress
{

/** @returns what a line like "[download] 12 % of 3 MB" tells behind the bracket, or nothing for any other line */
std::optional<juce::String> readDownloadLine (const juce::String& line);

/** @returns the percentage of a line like " 42%|####      |", from 0 to 100, or nothing for any other line: digits
    have to stand directly before the line's first per cent sign and a vertical bar directly behind it
*/
std::optional<int> readSeparationLine (const juce::String& line);

} // namespace workerprogress
