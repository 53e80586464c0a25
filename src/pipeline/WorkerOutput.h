#pragma once

#include <juce_core/juce_core.h>

#include <functional>
#include <string>

/** How a worker ended, and what it printed. */
struct ScriptResult
{
    bool succeeded() const { return started && exitCode == 0; }

    bool started = false;
    int exitCode = -1;   /**< -1 if the worker did not start or was cancelled */
    juce::String output; /**< the lines that are not blank, trimmed, each followed by a line feed */
};

using LineCallback = std::function<void (const juce::String&)>;

/** Reads a child process's output until the process closes it. */
juce::String readAllOutput (juce::ChildProcess& child);

/** Splits complete lines off the pending bytes. A carriage return ends a line too, so that each redraw of a progress
    bar is a line. Lines are decoded as UTF-8 and trimmed; blank lines are dropped.

    @param pending  the bytes that were read but not yet split; an unfinished line remains
    @param output   receives each line as UTF-8, followed by a line feed
    @param onLine   called with each line; may be empty
    @param flush    true to take the unfinished line as well
*/
void splitLines (std::string& pending, std::string& output, const LineCallback& onLine, bool flush);

/** @returns the trimmed text after the marker in the last line that contains it; empty if no line does */
juce::String findMarker (const juce::String& text, const juce::String& marker);

/** @returns the trimmed text; if that has more than maxChars characters, "..." and the last maxChars of them */
juce::String tailOf (const juce::String& text, int maxChars);
