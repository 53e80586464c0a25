#include "fuzz/FuzzTargets.h"

#include <gtest/gtest.h>
#include <juce_core/juce_core.h>

/** Replays the inputs that the fuzzers have found, including every one that once broke a target. */
TEST (CorpusTest, PassesEveryFuzzTarget)
{
    for (const auto& [name, run] : fuzzTargets)
    {
        const auto folder = juce::File (KELVANE_FUZZ_CORPUS).getChildFile (std::string (name));
        const auto files = folder.findChildFiles (juce::File::findFiles, false);
        EXPECT_FALSE (files.isEmpty()) << name;

        for (const auto& file : files)
        {
            juce::MemoryBlock bytes;
            ASSERT_TRUE (file.loadFileAsData (bytes));
            EXPECT_NO_THROW (run ({ bytes.begin(), bytes.getSize() })) << file.getFullPathName();
        }
    }
}
