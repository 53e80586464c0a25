#pragma once

#include <juce_core/juce_core.h>

/** Messages for the user that several jobs share. */
namespace messages
{

inline constexpr auto cancelled = "Cancelled.";

inline constexpr auto threadNotStarted = "Could not start a thread. Close other programs and try again.";

/** The message after an exception that carries no text. */
inline constexpr auto endedEarly = "Unexpected error: the job ended early.\nClose other programs and try again.";

inline constexpr auto downloadFailed = "YouTube download failed. Check the URL and your connection.";

/** @returns the message, a blank line and the end of the worker's output */
juce::String withQuote (const juce::String& message, const juce::String& workerOutput);

} // namespace messages
