#include "pipeline/PythonBridge.h"
#include "pipeline/RunChecks.h"
#include "pipeline/Utf8.h"
#include "render/BatchAnalyzer.h"
#include "render/BatchPreparer.h"
#include "render/BatchRenderer.h"
#include "render/CommandLine.h"
#include "render/ExitStatus.h"

#include <csignal>
#include <cstring>
#include <iostream>

static int renderSongs (const CommandLine& commandLine)
{
    if (const auto error = runchecks::prepareOutputFolder (commandLine.settings.outputDir); error.isNotEmpty())
    {
        std::cerr << error << std::endl;
        return exitstatus::runFailed;
    }

    return BatchRenderer (commandLine).run();
}

/** From here on all paths have to be absolute. */
static int work (const CommandLine& commandLine)
{
    PythonBridge::enterScriptsDir();
    const juce::ScopedJuceInitialiser_GUI messageLoop;

    if (commandLine.action == CommandLine::Action::prepare)
        return BatchPreparer().run();

    if (commandLine.action == CommandLine::Action::analyze)
        return BatchAnalyzer (commandLine.songs).run();

    return renderSongs (commandLine);
}

/** @returns false if an argument is no valid text, and so can name no file that could be found again */
static bool readArguments (int argc, char* argv[], juce::StringArray& arguments)
{
#if JUCE_WINDOWS
    juce::ignoreUnused (argc, argv);
    arguments = juce::JUCEApplicationBase::getCommandLineParameterArray();
#else
    for (int i = 1; i < argc; ++i)
    {
        const auto argument = decodeUtf8 (argv[i]);

        if (std::strcmp (argument.toRawUTF8(), argv[i]) != 0)
            return false;

        arguments.add (argument);
    }
#endif

    return true;
}

static int refuse (const juce::String& error)
{
    std::cerr << "kelvane-render: " << error << '\n' << CommandLine::getUsage() << std::flush;
    return exitstatus::wrongUsage;
}

int main (int argc, char* argv[])
{
#if ! JUCE_WINDOWS
    // A reader of our output that goes away must not end a run in the middle of a file.
    std::signal (SIGPIPE, SIG_IGN);
#endif

    juce::StringArray arguments;

    if (! readArguments (argc, argv, arguments))
        return refuse ("An argument is not valid UTF-8.");

    CommandLine commandLine;
    juce::String error;

    if (! commandLine.parse (arguments, error))
        return refuse (error);

    switch (commandLine.action)
    {
        case CommandLine::Action::showHelp:
            std::cout << CommandLine::getHelp() << std::flush;
            return exitstatus::success;

        case CommandLine::Action::showVersion:
            std::cout << "kelvane-render " KELVANE_VERSION << std::endl;
            return exitstatus::success;

        case CommandLine::Action::analyze:
        case CommandLine::Action::prepare:
        case CommandLine::Action::render:
            break;
    }

    return work (commandLine);
}
