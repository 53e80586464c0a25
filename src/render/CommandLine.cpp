#include "render/CommandLine.h"

#include "pipeline/RunChecks.h"
#include "pipeline/SpeedRatio.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

namespace
{

constexpr auto usage =
    "Usage: kelvane-render SONG [SONG...] --out DIR [--stems @stems] [--full-song]\n"
    "           [--percent P | --bpm FROM:TO | --key FROM:TO] [--resample] [--rate HZ] [--bits 16|24|32]\n"
    "       kelvane-render SONG [SONG...] --analyze\n"
    "       kelvane-render --prepare\n";

constexpr auto details = R"(
Changes the tempo or key of each song and writes its stems to 'SONG - Stems' under DIR. A SONG is a file
or the URL of a video (https://...).

  --out DIR            the folder for the results; created if necessary
  --stems LIST         the stems to render, separated by commas: @stems
  --full-song          the whole song, unseparated
                       Without --stems and --full-song, all stems are rendered.

  --percent P          tempo change in percent: 25 is a quarter faster, -50 half as fast;
                       the speed is limited to @speeds
  --bpm FROM:TO        change the tempo from FROM to TO beats per minute; FROM may be auto
  --key FROM:TO        transpose by the smaller interval and keep the tempo;
                       FROM may be auto; the keys are
                       @keys
  --resample           change tempo and pitch together, like a tape machine

  --rate HZ            sample rate of the results, @rates; default: the song's
  --bits 16|24|32      bit depth of the results; default: 24; 32 is floating point

  --analyze            render nothing; print the tempo and key of each song as a line of JSON with
                       song, bpm, key_index (0 is C, 11 is B) and key
  --prepare            download everything that links, detection and stems need; afterwards they
                       start at once, and only links need a network; safe to repeat

  --help, --version    print this text, or the version
  --                   treat all further arguments as songs, even if they begin with a dash

Exit status: 0 success, 1 a song failed, 2 wrong usage, 130 cancelled with Ctrl-C.
)";

constexpr auto minRate = 8000, maxRate = 384000; // Hz

template <typename Names>
juce::String join (const Names& names, const char* separator)
{
    return juce::StringArray (names.data(), static_cast<int> (names.size())).joinIntoString (separator);
}

juce::String rateRange()
{
    return juce::String (minRate) + " to " + juce::String (maxRate);
}

juce::String fillIn (const char* text)
{
    return juce::String (text)
        .replace ("@stems", join (PipelineConfig::stemNames, ","))
        .replace ("@keys", join (PipelineConfig::keyNames, " "))
        .replace ("@speeds", speedratio::range)
        .replace ("@rates", rateRange());
}

/** Reads a finite decimal number without surrounding text. */
std::optional<double> parseNumber (const juce::String& text)
{
    if (! text.containsAnyOf ("0123456789") || ! text.containsOnly ("0123456789.+-"))
        return {};

    auto end = text.getCharPointer();
    const auto value = juce::CharacterFunctions::readDoubleValue (end);
    return end.isEmpty() && std::isfinite (value) ? std::optional (value) : std::nullopt;
}

std::optional<int> parseKey (const juce::String& text)
{
    for (int key = 0; key < PipelineConfig::numKeys; ++key)
        if (text.equalsIgnoreCase (PipelineConfig::keyNames[static_cast<size_t> (key)]))
            return key;

    return {};
}

/** Splits "FROM:TO". */
std::optional<std::pair<juce::String, juce::String>> parsePair (const juce::String& text)
{
    const auto colon = text.indexOfChar (':');

    if (colon < 0)
        return {};

    return std::pair (text.substring (0, colon), text.substring (colon + 1));
}

juce::String parseStems (const juce::String& list, PipelineConfig& settings)
{
    for (const auto& name : juce::StringArray::fromTokens (list, ",", {}))
    {
        const auto& names = PipelineConfig::stemNames;
        const auto found = std::find_if (names.begin(), names.end(), [&] (const char* stem) { return name == stem; });

        if (found == names.end())
            return "--stems takes a list of " + join (names, ",") + ", not '" + list + "'.";

        settings.stems[std::distance (names.begin(), found)] = true;
    }

    return settings.wantsStems() ? juce::String() : "--stems is empty.";
}

juce::String parsePercent (const juce::String& text, PipelineConfig& settings)
{
    const auto percent = parseNumber (text);

    if (! percent)
        return "--percent takes a number, not '" + text + "'.";

    settings.adjustMode = AdjustMode::Percentage;
    settings.percent = *percent;
    return {};
}

juce::String parseTempos (const juce::String& text, PipelineConfig& settings)
{
    const auto pair = parsePair (text);
    settings.autoBpm = pair && pair->first == "auto";

    const auto from = pair ? (settings.autoBpm ? 0.0 : parseNumber (pair->first)) : std::nullopt;
    const auto to = pair ? parseNumber (pair->second) : std::nullopt;

    if (! from || ! to)
        return "--bpm takes two tempos as FROM:TO, such as 120:90 or auto:90, not '" + text + "'.";

    settings.adjustMode = AdjustMode::Bpm;
    settings.fromBpm = *from;
    settings.toBpm = *to;
    return runchecks::checkTempos (settings);
}

juce::String parseKeys (const juce::String& text, PipelineConfig& settings)
{
    const auto pair = parsePair (text);
    settings.autoKey = pair && pair->first == "auto";

    const auto from = pair ? (settings.autoKey ? 0 : parseKey (pair->first)) : std::nullopt;
    const auto to = pair ? parseKey (pair->second) : std::nullopt;

    if (! from || ! to)
        return "--key takes two keys as FROM:TO, from " + join (PipelineConfig::keyNames, " ") + ", not '" + text
               + "'.";

    settings.adjustMode = AdjustMode::Key;
    settings.fromKey = *from;
    settings.toKey = *to;
    return {};
}

juce::String parseRate (const juce::String& text, PipelineConfig& settings)
{
    const auto rate = text.containsOnly ("0123456789") && text.length() < 9 ? text.getIntValue() : 0;

    if (rate < minRate || rate > maxRate)
        return "--rate takes a whole number of Hz from " + rateRange() + ", not '" + text + "'.";

    settings.sampleRate = rate;
    return {};
}

juce::String parseBits (const juce::String& text, PipelineConfig& settings)
{
    if (text != "16" && text != "24" && text != "32")
        return "--bits takes 16, 24 or 32, not '" + text + "'.";

    settings.bitDepth = text.getIntValue();
    return {};
}

/** Makes a path absolute. juce::File would misread a leading tilde, and a path that goes above the root. */
juce::File resolvePath (const juce::String& path)
{
    const auto toPath = [] (const juce::String& text)
    { return std::filesystem::path (reinterpret_cast<const char8_t*> (text.toRawUTF8())); };

    const auto absolute = toPath (juce::File::getCurrentWorkingDirectory().getFullPathName()) / toPath (path);
    const auto text = absolute.lexically_normal().u8string();
    return juce::File (
        juce::String::fromUTF8 (reinterpret_cast<const char*> (text.data()), static_cast<int> (text.size())));
}

juce::String parseFolder (const juce::String& text, PipelineConfig& settings)
{
    if (text.isEmpty())
        return "--out is empty.";

    settings.outputDir = resolvePath (text);
    return {};
}

using ParseValue = juce::String (*) (const juce::String&, PipelineConfig&);

/** An option that takes a value. Only one option of a group can be given. */
struct ValueOption
{
    const char* name;
    ParseValue parse;
    size_t group;
};

constexpr ValueOption valueOptions[] { { "--out", parseFolder, 0 },      { "--stems", parseStems, 1 },
                                       { "--percent", parsePercent, 2 }, { "--bpm", parseTempos, 2 },
                                       { "--key", parseKeys, 2 },        { "--rate", parseRate, 3 },
                                       { "--bits", parseBits, 4 } };

const ValueOption* findValueOption (const juce::String& name)
{
    const auto found = std::find_if (std::begin (valueOptions), std::end (valueOptions),
                                     [&] (const ValueOption& option) { return name == option.name; });
    return found != std::end (valueOptions) ? found : nullptr;
}

Song parseSong (const juce::String& text)
{
    const auto isUrl = text.startsWithIgnoreCase ("http://") || text.startsWithIgnoreCase ("https://");
    return isUrl ? Song { {}, text } : Song { resolvePath (text), {} };
}

bool haveSameName (const juce::File& a, const juce::File& b)
{
    const auto nameA = a.getFileNameWithoutExtension();
    const auto nameB = b.getFileNameWithoutExtension();
    return juce::File::areFileNamesCaseSensitive() ? nameA == nameB : nameA.equalsIgnoreCase (nameB);
}

bool wouldOverwriteEachOther (const Song& a, const Song& b)
{
    return ! a.isUrl() && ! b.isUrl() && a.file != b.file && haveSameName (a.file, b.file);
}

juce::String checkNames (const std::vector<Song>& songs)
{
    for (size_t i = 0; i < songs.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (wouldOverwriteEachOther (songs[j], songs[i]))
                return "'" + songs[j].file.getFullPathName() + "' and '" + songs[i].file.getFullPathName()
                       + "' would be written to the same files. Render them into different folders.";

    return {};
}

/** Parses the arguments in one pass. Each step returns a message about a mistake, or an empty string. */
class Parser
{
public:
    Parser (CommandLine& resultToFill, const juce::StringArray& argumentsToParse)
        : result (resultToFill), arguments (argumentsToParse)
    {
    }

    juce::String parse()
    {
        while (next < arguments.size() && ! isDone())
        {
            const auto error = parseArgument (arguments[next++]);

            if (error.isNotEmpty())
                return error;
        }

        return isDone() ? juce::String() : complete();
    }

private:
    /** --help and --version end the parsing, so later arguments are not even checked. */
    bool isDone() const
    {
        return result.action == CommandLine::Action::showHelp || result.action == CommandLine::Action::showVersion;
    }

    juce::String parseArgument (const juce::String& argument)
    {
        if (onlySongsFollow || ! argument.startsWithChar ('-'))
        {
            if (argument.isEmpty())
                return "A song's name is empty.";

            result.songs.push_back (parseSong (argument));
            return {};
        }

        if (const auto* const option = findValueOption (argument.upToFirstOccurrenceOf ("=", false, false)))
            return parseValueOption (*option, argument);

        return parseFlag (argument);
    }

    juce::String parseValueOption (const ValueOption& option, const juce::String& argument)
    {
        auto& given = givenInGroup[option.group];

        if (given == &option)
            return juce::String (option.name) + " is given twice.";

        if (given != nullptr)
            return juce::String (given->name) + " and " + option.name + " cannot be used together.";

        given = &option;

        if (argument.containsChar ('='))
            return option.parse (argument.fromFirstOccurrenceOf ("=", false, false), result.settings);

        if (next == arguments.size())
            return juce::String (option.name) + " needs a value.";

        return option.parse (arguments[next++], result.settings);
    }

    juce::String parseFlag (const juce::String& argument)
    {
        if (argument == "--full-song")
            result.settings.fullSong = true;
        else if (argument == "--resample")
            result.settings.stretchMode = StretchMode::TempoAndPitch;
        else if (argument == "--analyze")
            result.action = CommandLine::Action::analyze;
        else if (argument == "--prepare")
            result.action = CommandLine::Action::prepare;
        else if (argument == "--help")
            result.action = CommandLine::Action::showHelp;
        else if (argument == "--version")
            result.action = CommandLine::Action::showVersion;
        else if (argument == "--")
            onlySongsFollow = true;
        else
            return "There is no option '" + argument + "'.";

        return {};
    }

    juce::String complete()
    {
        if (result.action == CommandLine::Action::prepare)
            return arguments.size() == 1 ? juce::String() : "--prepare takes no other arguments.";

        if (result.songs.empty())
            return "No song is given.";

        return result.action == CommandLine::Action::analyze ? checkNothingIsRendered() : completeSettings();
    }

    juce::String checkNothingIsRendered() const
    {
        for (const auto* option : givenInGroup)
            if (option != nullptr)
                return refuseBesideAnalyze (option->name);

        if (result.settings.fullSong)
            return refuseBesideAnalyze ("--full-song");

        return result.settings.stretchMode == StretchMode::TempoAndPitch ? refuseBesideAnalyze ("--resample")
                                                                         : juce::String();
    }

    static juce::String refuseBesideAnalyze (const char* option)
    {
        return juce::String ("--analyze and ") + option + " cannot be used together.";
    }

    juce::String completeSettings()
    {
        auto& settings = result.settings;

        if (! settings.wantsStems() && ! settings.fullSong)
            std::fill (std::begin (settings.stems), std::end (settings.stems), true);

        if (settings.outputDir == juce::File())
            return "--out is missing: name a folder for the results.";

        return checkNames (result.songs);
    }

    CommandLine& result;
    const juce::StringArray& arguments;
    int next = 0;
    bool onlySongsFollow = false;
    std::array<const ValueOption*, std::size (valueOptions)> givenInGroup {};
};

} // namespace

juce::String CommandLine::getUsage()
{
    return fillIn (usage);
}

juce::String CommandLine::getHelp()
{
    return getUsage() + fillIn (details);
}

bool CommandLine::parse (const juce::StringArray& arguments, juce::String& error)
{
    error = Parser (*this, arguments).parse();
    return error.isEmpty();
}
