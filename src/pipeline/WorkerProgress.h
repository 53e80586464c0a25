#pragma once

#include <juce_core/juce_core.h>

#include <optional>

/** Reads the progress lines of the workers. */
namespace workerprogress
{

/** @returns the text after the bracket of a line like "[download] 12 % of 3 MB"; nothing for any other line */
std::optional<juce::String> readDownloadLine (const juce::String& line);

/** @returns the text after the bracket of a line like "[setup] Fetching packages: 12 of 50 MB", which a worker prints
    while it installs what it needs; nothing for any other line
*/
std::optional<juce::String> readSetupLine (const juce::String& line);

/** @returns the text after the bracket of a line like "[plan] Stems: 280 MB", which a preparation prints before it
    fetches anything; nothing for any other line
*/
std::optional<juce::String> readPlanLine (const juce::String& line);

/** @returns the percentage, from 0 to 100, of a line like " 42%|####      |", with digits directly before its first
    per cent sign and a vertical bar directly after it; nothing for any other line
*/
std::optional<int> readBarLine (const juce::String& line);

} // namespace workerprogress
