#include "pipeline/TemporaryFolder.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

class TemporaryFolderTest : public testing::Test
{
protected:
    TemporaryFolderTest() { setenv ("TMPDIR", folder.get().getFullPathName().toRawUTF8(), 1); }
    ~TemporaryFolderTest() override { unsetenv ("TMPDIR"); }

    juce::String path (const juce::String& name) const { return folder.getChild (name).getFullPathName(); }

    /** Expects the new folder's parent to be closed to other users. @returns the parent's name */
    static juce::String parentOf (const juce::File& newFolder)
    {
        struct stat status = {};
        EXPECT_EQ (lstat (newFolder.getParentDirectory().getFullPathName().toRawUTF8(), &status), 0);
        EXPECT_EQ (status.st_mode, static_cast<mode_t> (S_IFDIR | S_IRWXU));
        return newFolder.getParentDirectory().getFileName();
    }

    TemporaryFolder folder;
};

TEST_F (TemporaryFolderTest, ClosesItsParentToOtherUsers)
{
    EXPECT_EQ (parentOf (newTemporaryFolder()), "Kelvane");
    ASSERT_EQ (chmod (path ("Kelvane").toRawUTF8(), 0777), 0);
    EXPECT_EQ (parentOf (newTemporaryFolder()), "Kelvane");
}

TEST_F (TemporaryFolderTest, AvoidsFoldersOfOtherUsers)
{
    const auto ownName = "Kelvane-" + juce::String (geteuid());
    ASSERT_EQ (symlink ("/var/tmp", path ("Kelvane").toRawUTF8()), 0);
    EXPECT_EQ (parentOf (newTemporaryFolder()), ownName);

    if (geteuid() == 0)
    {
        constexpr auto somebody = 12345;
        ASSERT_EQ (chown (path (ownName).toRawUTF8(), somebody, somebody), 0);
    }
    else
    {
        ASSERT_TRUE (folder.getChild (ownName).deleteRecursively());
        ASSERT_EQ (symlink ("/var/tmp", path (ownName).toRawUTF8()), 0);
    }

    const auto fresh = parentOf (newTemporaryFolder());
    EXPECT_TRUE (fresh.startsWith ("Kelvane-") && fresh != ownName) << fresh;
}
