// The way of a request through the whole process, in its shortest forms.
#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using SmokeTest = DaemonTest;

TEST_F(SmokeTest, AnswersTwiceOnOneConnection) {
    Start();
    RawClient client;
    EXPECT_EQ(client.Call({Command::IsExist, tree->File("a")}).result, 1);
    EXPECT_EQ(client.Call({Command::IsExist, tree->Path("b")}).result, 0);
    EXPECT_TRUE(daemon->WaitForLog("src: " + tree->Path("b")));
}

TEST_F(SmokeTest, RefusedRequestIsRecordedAndGetsNoAnswer) {
    Start();
    RawClient client;
    client.Send({Command::IsExist, "/data/../etc"});
    ASSERT_TRUE(daemon->WaitForLog("Invalid RecvMsg!"));
    // Were there an answer to the first, it would be taken for the second's, which differs.
    EXPECT_EQ(client.Call({Command::IsDir, "/data"}).result, 1);
    EXPECT_FALSE(client.Receive(Deadline{50}));
    ASSERT_EQ(Records().size(), 1U);
    EXPECT_TRUE(Records()[0].starts_with("type:INVALID_STR,src:,times:"));
}

TEST_F(SmokeTest, RecordIsLostWhenItsFileCannotBeSynced) {
    Start({WithFault(std::string("fsync@") + "file_migrate_ab=5")});
    const Reply reply = RawClient().Call({Command::MkDir, tree->Path("none/a"), "", "0", "0", "0755", 1});
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.errCode, 2);
    EXPECT_TRUE(daemon->WaitForLog("file_migrate_ab.txt failed, errno: 5."));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
