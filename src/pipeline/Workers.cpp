#include "pipeline/Workers.h"

#include "pipeline/WorkerOutput.h"

namespace workers
{

static juce::StringArray makeCommand (const juce::File& uv, const juce::File& scripts, const char* script,
                                      const juce::StringArray& arguments)
{
    juce::StringArray command { uv.getFullPathName(), "run", scripts.getChildFile (script).getFullPathName() };
    command.addArray (arguments);
    return command;
}

juce::StringArray downloadCommand (const juce::File& uv, const juce::File& scripts, const juce::String& url,
                                   const juce::File& folder)
{
    return makeCommand (uv, scripts, "yt2wav.py", { url, folder.getFullPathName() });
}

juce::StringArray analysisCommand (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                                   bool wantBpm, bool wantKey)
{
    juce::StringArray arguments { audio.getFullPathName() };

    if (wantBpm)
        arguments.add ("--bpm");

    if (wantKey)
        arguments.add ("--key");

    return makeCommand (uv, scripts, "analyze.py", arguments);
}

juce::StringArray separationCommand (const juce::File& uv, const juce::File& scripts, const juce::File& audio,
                                     const juce::File& folder, const juce::String& model,
                                     const juce::StringArray& stems)
{
    return makeCommand (
        uv, scripts, "separate.py",
        { audio.getFullPathName(), folder.getFullPathName(), "--model", model, "--stems", stems.joinIntoString (",") });
}

juce::StringArray preparationCommand (const juce::File& uv, const juce::File& scripts)
{
    return makeCommand (uv, scripts, "prepare.py", {});
}

juce::File findDownload (const juce::String& output)
{
    const auto path = findMarker (output, "WAV_PATH::");
    return juce::File::isAbsolutePath (path) && juce::File (path).existsAsFile() ? juce::File (path) : juce::File();
}

std::optional<Detection> findDetection (const juce::String& output)
{
    const auto json = findMarker (output, "RESULT::");
    return json.isEmpty() ? std::nullopt : std::optional (Detection::fromJson (json));
}

} // namespace workers
