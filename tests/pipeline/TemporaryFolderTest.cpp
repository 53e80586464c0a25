#include "pipeline/TemporaryFolder.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

TEST (TemporaryFolderTest, ClosesItsParentToOtherUsersAndAvoidsTheirFolders)
{
    const TemporaryFolder folder;
    const auto path = [&] (const juce::String& name) { return folder.getChild (name).getFullPathName().toStdString(); };
    setenv ("TMPDIR", path ({}).c_str(), 1);
    const auto parentName = []
    {
        const auto parent = newTemporaryFolder().getParentDirectory();
        struct stat status = {};
        EXPECT_EQ (lstat (parent.getFullPathName().toRawUTF8(), &status), 0);
        EXPECT_EQ (status.st_mode, static_cast<mode_t> (S_IFDIR | S_IRWXU));
        return parent.getFileName();
    };

    EXPECT_EQ (parentName(), "Kelvane");
    ASSERT_EQ (chmod (path ("Kelvane").c_str(), 0777), 0);
    EXPECT_EQ (parentName(), "Kelvane");

    const auto ownName = "Kelvane-" + juce::String (geteuid());
    ASSERT_EQ (rmdir (path ("Kelvane").c_str()) + symlink ("/var/tmp", path ("Kelvane").c_str()), 0);
    EXPECT_EQ (parentName(), ownName);

    constexpr auto somebody = 12345;
    if (chown (path (ownName).c_str(), somebody, somebody) != 0) // only root can do that
    {
        ASSERT_EQ (rmdir (path (ownName).c_str()) + symlink ("/var/tmp", path (ownName).c_str()), 0);
    }
    const auto fresh = parentName();
    EXPECT_TRUE (fresh.startsWith ("Kelvane-") && fresh != ownName) << fresh;
    unsetenv ("TMPDIR");
}
