#include "log/gamelog.h"

#include <gmock/gmock.h>

#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

TEST(GameLog, PrintsWhatItsLevelAdmitsByFormatOrByNumber) {
    RecordingLog log;
    const char* const table[] = {"first %d,", "second %s %d,"};
    GameLog::SetMessages(table, 2);
    for (const int32_t level : {-5, 0, 1}) {
        log.Printf(level, "level %d,", level);
        log.PrintMsg(level, 0u, level);
    }
    log.PrintMsg(1, "of", 2);
    log.PrintMsg(2);
    const std::string longest(65534, 'x');
    log.Printf("%sy", longest.c_str());
    EXPECT_EQ(log.Text(), "level -5,first -5,level 0,first 0,second of 2,(null)" + longest);
}

TEST(GameLog, StampsWhatGoesToStandardOutputAndNoFile) {
    ScratchDir scratch;
    testing::internal::CaptureStdout();
    for (const char* text : {"one", "two\n"}) {
        GameLog().Printf("%s", text);
        GameLog::AppendToFile("log.txt", "%s", text);
        GameLog::AppendToFile("missing/log.txt", "lost");
    }
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("\\[[^]]+\\] one\\[[^]]+\\] two\n"));
    EXPECT_EQ(ReadFile("log.txt"), "onetwo\n");
}

}  // namespace
