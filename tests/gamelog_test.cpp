#include "log/gamelog.h"

#include <gmock/gmock.h>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

TEST(GameLog, PrintsOnlyWhatItsLevelAdmits) {
    RecordingLog log;
    for (const int32_t level : {-5, 0, 1}) log.Printf(level, "level %d\n", level);
    EXPECT_EQ(log.Text(), "level -5\nlevel 0\n");
}

TEST(GameLog, TakesFormatsFromTheMessageTable) {
    RecordingLog log;
    log.PrintMsg(0);
    const char* const table[] = {"first %d\n", "second %s %d\n"};
    GameLog::SetMessages(table, 2);
    log.PrintMsg(1, "of", 2);
    log.PrintMsg(2);
    log.PrintMsg(0, 0u, 1);
    log.PrintMsg(1, 0u, 1);  // above the level
    GameLog::SetMessages(nullptr, 0);
    EXPECT_EQ(log.Text(), "(null)second of 2\n(null)first 1\n");
}

TEST(GameLog, CutsLongTexts) {
    RecordingLog log;
    const std::string longest(65534, 'x');
    log.Printf("%sy", longest.c_str());
    EXPECT_EQ(log.Text(), longest);
}

TEST(GameLog, StampsEachPrintAndEndsNoLine) {
    GameLog log;
    testing::internal::CaptureStdout();
    log.Printf("one");
    log.Printf("two\n");
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("\\[[^]]+\\] one\\[[^]]+\\] two\n"));
}

TEST(GameLog, AppendsToFilesWithoutAStamp) {
    ScratchDir scratch;
    GameLog::AppendToFile("log.txt", "%d, ", 1);
    GameLog::AppendToFile("log.txt", "%s", "two");
    GameLog::AppendToFile("missing/log.txt", "lost");
    EXPECT_EQ(ReadFile("log.txt"), "1, two");
}

}  // namespace
