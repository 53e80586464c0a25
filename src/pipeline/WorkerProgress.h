#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** Reads the progress lines of the workers. */
namespace workerprogress
{

/** @returns the text after the bracket of a line like "[download] 12 % of 3 MB"; nothing for any other line */
std::optional<juce::String> readDownloadLine (const juce::String& line);

/** @returns the text after the bracket of a line like "[setup] Fetching packages: 12 of 50 MB", which says what a
    worker prepares before its own work begins; nothing for any other line
*/
std::optional<juce::String> readSetupLine (const juce::String& line);

/** @returns the text after the bracket of a line like "[plan] Stems: 280 MB", which a preparation prints before it
    fetches anything; nothing for any other line
*/
std::optional<juce::String> readPlanLine (const juce::String& line);

/** @returns the percentage of a line like " 42%|####      |", from 0 to 100; nothing for any other line: there must be
    digits directly before the line's first per cent sign and a vertical bar directly after it
*/
std::optional<int> readBarLine (const juce::String& line);

} // namespace workerprogress
