#pragma once

#include "pipeline/PipelineConfig.h"
#include "render/Song.h"

#include <vector>

/** The parsed arguments of kelvane-render. */
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

    /** @param arguments  without the program's name
        @param error      receives a sentence about the first mistake
        @returns false if there is one
    */
    bool parse (const juce::StringArray& arguments, juce::String& error);

    static juce::String getUsage();
    static juce::String getHelp();

    Action action = Action::render;
    std::vector<Song> songs;
    PipelineConfig settings; /**< everything except the source */
};
