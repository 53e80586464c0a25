#include "pipeline/WorkerOutput.h"

#include "pipeline/Utf8.h"

#include <array>
#include <string_view>
#include <utility>

static void deliver (std::string_view bytes, std::string& output, const LineCallback& onLine)
{
    const auto line = decodeUtf8 (bytes).trim();

    if (line.isEmpty())
        return;

    output.append (line.toRawUTF8()).push_back ('\n');

    if (onLine != nullptr)
        onLine (line);
}

juce::String readAllOutput (juce::ChildProcess& child)
{
    std::string bytes;
    std::array<char, 8192> buffer;

    for (;;)
    {
        const auto numBytes = child.readProcessOutput (buffer.data(), static_cast<int> (buffer.size()));

        // Decode everything at once, because a block can end in the middle of a character.
        if (numBytes < 1)
            return decodeUtf8 (bytes);

        bytes.append (buffer.data(), static_cast<size_t> (numBytes));
    }
}

void splitLines (std::string& pending, std::string& output, const LineCallback& onLine, bool flush)
{
    std::string_view rest (pending);

    for (auto end = rest.find_first_of ("\n\r"); end != std::string_view::npos; end = rest.find_first_of ("\n\r"))
    {
        deliver (rest.substr (0, end), output, onLine);
        rest.remove_prefix (end + 1);
    }

    if (flush)
        deliver (std::exchange (rest, {}), output, onLine);

    pending = std::string (rest);
}

juce::String findMarker (const juce::String& text, const juce::String& marker)
{
    const auto lines = juce::StringArray::fromLines (text);

    for (auto i = lines.size(); --i >= 0;)
        if (const auto found = lines[i].indexOf (marker); found >= 0)
            return lines[i].substring (found + marker.length()).trim();

    return {};
}

juce::String tailOf (const juce::String& text, int maxChars)
{
    const auto trimmed = text.trim();

    if (trimmed.length() <= maxChars)
        return trimmed;

    return "..." + trimmed.getLastCharacters (maxChars);
}
