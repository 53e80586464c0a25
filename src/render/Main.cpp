#include "pipeline/RunChecks.h"
#include "pipeline/Utf8.h"
#include "pipeline/WorkingFolder.h"
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

/** Changes the working folder, so all paths must be absolute. */
static int process (const CommandLine& commandLine)
{
    enterScriptsFolder();
    const juce::ScopedJuceInitialiser_GUI messageLoop;

    if (commandLine.action == CommandLine::Action::prepare)
        return BatchPreparer().run();

    if (commandLine.action == CommandLine::Action::analyze)
        return BatchAnalyzer (commandLine.songs).run();

    return renderSongs (commandLine);
}

/** @returns false if an argument is not valid UTF-8, and so cannot name a file that JUCE would find */
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

static int reportWrongUsage (const juce::String& error)
{
    std::cerr << "kelvane-render: " << error << '\n' << CommandLine::getUsage() << std::flush;
    return exitstatus::wrongUsage;
}

int main (int argc, char* argv[])
{
#if ! JUCE_WINDOWS
    // If the program that reads our output exits, the run still finishes its files.
    std::signal (SIGPIPE, SIG_IGN);
#endif

    juce::StringArray arguments;

    if (! readArguments (argc, argv, arguments))
        return reportWrongUsage ("An argument is not valid UTF-8.");

    CommandLine commandLine;
    juce::String error;

    if (! commandLine.parse (arguments, error))
        return reportWrongUsage (error);

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

    return process (commandLine);
}
