#pragma once

#include <juce_core/juce_core.h>

#include <functional>
#include <string>

/** How a worker has ended, and what it has printed. It has succeeded if it was started and exitCode is 0. */
struct ScriptResult
{
    bool succeeded() const { return started && exitCode == 0; }

    bool started = false;
    int exitCode = -1;   /**< stays -1 unless the worker ran to its end and was not cancelled */
    juce::String output; /**< the lines that are not blank, trimmed, each with a line feed behind it */
};

using LineCallback = std::function<void (const juce::String&)>;

/** Reads a child process' output until it has closed it. */
juce::String readAllOutput (juce::ChildProcess& child);

/** Takes the finished lines off the front of pending. A line feed ends a line, and so does a carriage return: each
    redraw of a progress bar is a line of its own. Lines are decoded as UTF-8 and trimmed; blank ones are dropped.

    @param pending  the bytes that have been read and not split yet; the start of an unfinished line stays
    @param output   each line is appended to it, as UTF-8 and with a line feed
    @param onLine   called with each line; may be empty
    @param flush    take the unfinished line too
*/
void splitLines (std::string& pending, std::string& output, const LineCallback& onLine, bool flush);

/** @returns what stands behind the marker in the last line of text that holds it, trimmed; empty if none does */
juce::String findMarker (const juce::String& text, const juce::String& marker);

/** @returns the file whose path stands behind the marker; a default File if there is no such file */
juce::File findFile (const juce::String& text, const juce::String& marker);

/** @returns text, trimmed; if that is longer than maxChars, "..." and its last maxChars characters */
juce::String tailOf (const juce::String& text, int maxChars);

/** The longest tail of a worker's output that a message to the user quotes, in characters. */
constexpr int maxQuotedChars = 700;

/** What the user reads when a download has failed, ahead of what the worker says. */
constexpr auto downloadFailedText = "YouTube download failed. Check the URL and your connection.\n\n";
