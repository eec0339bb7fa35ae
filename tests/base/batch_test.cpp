// Tests of the batch-library parts: the error global and the release of a
// reservation's command record.
#include "rsv_test_support.h"

#include <cstdlib>
#include <cstring>

TEST(QobErrno, StartsAtZeroAndHoldsWhatIsStored)
{
    EXPECT_EQ(qob_errno, 0);
    qob_errno = 55;
    EXPECT_EQ(qob_errno, 55);
    qob_errno = 0;
}

TEST(QobFreeRsvExecCmd, FreesRecordAndTextAndClearsThePointer)
{
    auto *cmd = static_cast<RsvExecCmd *>(std::calloc(1, sizeof(RsvExecCmd)));
    cmd->when = 1;
    cmd->command = strdup("/bin/true");
    qob_freeRsvExecCmd(&cmd);
    EXPECT_EQ(cmd, nullptr);
}

TEST(QobFreeRsvExecCmd, SecondCallOnTheSamePointerDoesNothing)
{
    auto *cmd = static_cast<RsvExecCmd *>(std::calloc(1, sizeof(RsvExecCmd)));
    cmd->command = strdup("echo end");
    qob_freeRsvExecCmd(&cmd);
    qob_freeRsvExecCmd(&cmd);
    EXPECT_EQ(cmd, nullptr);
}

TEST(QobFreeRsvExecCmd, AcceptsNullPointerAndNullCommand)
{
    qob_freeRsvExecCmd(nullptr);
    RsvExecCmd *none = nullptr;
    qob_freeRsvExecCmd(&none);
    EXPECT_EQ(none, nullptr);
    auto *cmd = static_cast<RsvExecCmd *>(std::calloc(1, sizeof(RsvExecCmd)));
    qob_freeRsvExecCmd(&cmd);
    EXPECT_EQ(cmd, nullptr);
}
