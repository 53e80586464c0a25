#include "pipeline/WorkerProcess.h"

#include "pipeline/Utf8.h"

#include <array>
#include <string_view>

ScriptResult runWorker (ChildSlot& slot, const juce::StringArray& args, const LineCallback& onLine,
                        const std::function<bool()>& shouldExit)
{
    ScriptResult result;
    auto* const process = slot.start (args);

    if (process == nullptr)
        return result;

    result.started = true;
    std::string pending, lines; // not decoded, because a block can end in the middle of a character
    std::array<char, 8192> buffer;

    const auto readOnce = [&]
    {
        const auto numBytes = process->readProcessOutput (buffer.data(), static_cast<int> (buffer.size()));

        if (numBytes < 1)
            return false;

        const std::string_view bytes (buffer.data(), static_cast<size_t> (numBytes));
        pending.append (bytes);

        // Searching an unfinished line again for each block would take quadratic time.
        if (bytes.find_first_of ("\n\r") != std::string_view::npos)
            splitLines (pending, lines, onLine, false);

        return true;
    };

    while (process->isRunning() && ! shouldExit())
        readOnce();

    if (! shouldExit())
    {
        while (readOnce())
        {
        }

        splitLines (pending, lines, onLine, true);
        result.exitCode = static_cast<int> (process->getExitCode());
    }

    result.output = decodeUtf8 (lines);

    // A cancellation that came before the process started has not killed it.
    if (shouldExit())
        slot.kill();

    slot.empty();
    return result;
}
