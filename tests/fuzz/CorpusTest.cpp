#include "fuzz/FuzzTargets.h"

#include <gtest/gtest.h>
#include <juce_core/juce_core.h>

#include <algorithm>

/** Replays the inputs that the fuzzers have found, among them each that once broke a target. */
class CorpusTest : public testing::TestWithParam<FuzzTarget>
{
};

TEST_P (CorpusTest, Holds)
{
    const auto& [name, run] = GetParam();
    const auto folder = juce::File (KELVANE_FUZZ_CORPUS).getChildFile (std::string (name));
    const auto files = folder.findChildFiles (juce::File::findFiles, false);
    ASSERT_FALSE (files.isEmpty()) << folder.getFullPathName();

    for (const auto& file : files)
    {
        juce::MemoryBlock bytes;
        ASSERT_TRUE (file.loadFileAsData (bytes));
        EXPECT_NO_THROW (run ({ bytes.begin(), bytes.getSize() })) << file.getFileName();
    }
}

INSTANTIATE_TEST_SUITE_P (Targets, CorpusTest, testing::ValuesIn (fuzzTargets),
                          [] (const auto& instance)
                          {
                              std::string name (instance.param.name);
                              std::replace (name.begin(), name.end(), '-', '_');
                              return name;
                          });
