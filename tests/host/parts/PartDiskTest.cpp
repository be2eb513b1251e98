// Parts of a job on a disk that is full: a tmpfs, mounted where nobody else sees it.
#include "ProcessingTree.h"

#include <gmock/gmock.h>

using ::testing::HasSubstr;

TEST(PartDiskTest, PartWithoutSpaceForItsTracesAsksForAnotherTry)
{
    const ProcessingTree tree;
    if (tree.shell("unshare -rm true").exitCode != 0)
        GTEST_SKIP() << "nothing can be mounted for this process alone";
    tree.write("job.yaml",
               "modules:\n"
               "  - {name: make, module: synthetic, shots: 15, samples: 750}\n"
               "  - {name: write, module: segy_out, input: make, file: disk/out.sgy}\n");
    tree.write("script", "mkdir disk && mount -t tmpfs -o size=1m none disk || exit 77\n"
                         "\"$VORN\" plan job.yaml --parts 3 -o run1 >/dev/null\n"
                         "for part in 1 2 3; do \"$VORN\" part run1 $part; echo \"code $?\"; done\n"
                         "\"$VORN\" merge run1 2>refused; echo \"code $?\"; ls disk\n"
                         "\"$VORN\" status run1\n"
                         "mount -o remount,size=16m disk\n"
                         "\"$VORN\" part run1 missing >/dev/null 2>&1; echo \"code $?\"\n"
                         "\"$VORN\" merge run1 -q; echo \"code $?\"; cp disk/out.sgy parts.sgy\n"
                         "\"$VORN\" run -q job.yaml --set write.overwrite=yes && cmp disk/out.sgy "
                         "parts.sgy && echo same\n");

    const ProcessResult run = tree.shell("unshare -rm sh ./script");

    if (run.exitCode == 77)
        GTEST_SKIP() << run.errors;
    EXPECT_THAT(run.output, HasSubstr("code 0\ncode 75\ncode 75\ncode 2\nstate")) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("No space left on device"));
    EXPECT_THAT(run.output, HasSubstr("failed       2  2-3\n"));
    EXPECT_THAT(run.output, HasSubstr("part 2: write: "));
    EXPECT_THAT(run.output, HasSubstr("code 0\ncode 0\nsame\n")) << run.errors;
}
