#include "pipeline/SharedMessages.h"

#include "pipeline/WorkerOutput.h"

namespace messages
{

juce::String withQuote (const juce::String& message, const juce::String& workerOutput)
{
    constexpr auto maxQuotedChars = 700;
    return message + "\n\n" + tailOf (workerOutput, maxQuotedChars);
}

} // namespace messages
