#pragma once

#include <juce_core/juce_core.h>

/** An empty folder for one test, deleted afterwards. */
class TemporaryFolder
{
public:
    TemporaryFolder() { folder.createDirectory(); }
    ~TemporaryFolder() { folder.deleteRecursively(); }

    juce::File get() const { return folder; }
    juce::File getChild (const juce::String& name) const { return folder.getChildFile (name); }

private:
    const juce::File folder = juce::File::getSpecialLocation (juce::File::tempDirectory)
                                  .getChildFile ("kelvane-test-" + juce::Uuid().toString());

    JUCE_DECLARE_NON_COPYABLE (TemporaryFolder)
};
