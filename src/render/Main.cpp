#include "pipeline/RunChecks.h"
#include "render/BatchRenderer.h"
#include "render/CommandLine.h"
#include "render/ExitStatus.h"

#include <iostream>

static int renderSongs (const CommandLine& commandLine)
{
    if (const auto error = runchecks::prepareOutputFolder (commandLine.settings.outputDir); error.isNotEmpty())
    {
        std::cerr << error << std::endl;
        return exitstatus::runFailed;
    }

    const juce::ScopedJuceInitialiser_GUI messageLoop;
    return BatchRenderer (commandLine).run();
}

int main (int argc, char* argv[])
{
    juce::StringArray arguments;

    for (int i = 1; i < argc; ++i)
        arguments.add (juce::String::fromUTF8 (argv[i]));

    CommandLine commandLine;
    juce::String error;

    if (! commandLine.parse (arguments, error))
    {
        std::cerr << "kelvane-render: " << error << '\n' << CommandLine::getUsage() << std::flush;
        return exitstatus::wrongUsage;
    }

    switch (commandLine.action)
    {
        case CommandLine::Action::showHelp:
            std::cout << CommandLine::getHelp() << std::flush;
            return exitstatus::success;

        case CommandLine::Action::showVersion:
            std::cout << "kelvane-render " KELVANE_VERSION << std::endl;
            return exitstatus::success;

        case CommandLine::Action::render:
            break;
    }

    return renderSongs (commandLine);
}
