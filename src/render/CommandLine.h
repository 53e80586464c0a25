#pragma once

#include "pipeline/PipelineConfig.h"
#include "render/Song.h"

#include <vector>

/** What the user asked kelvane-render for. */
struct CommandLine
{
    enum class Action
    {
        render,
        analyze,
        prepare,
        showHelp,
        showVersion
    };

    /** @param arguments  those behind the program's name
        @param error      receives what is wrong, in one line
        @returns false if the arguments are no correct command line
    */
    bool parse (const juce::StringArray& arguments, juce::String& error);

    static const char* getUsage();
    static juce::String getHelp();

    Action action = Action::render;
    std::vector<Song> songs;
    PipelineConfig settings; /**< complete but for the source */
};
