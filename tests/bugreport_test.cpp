// The crash report on its way to a receiver that is not always friendly.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "bugreport/post.h"
#include "bugreport/report.h"
#include "bugreport/submit.h"
#include "tests/support/report_receiver.h"
#include "tests/support/scratch_dir.h"

namespace {

using std::string_literals::operator""s;

constexpr char kHeader[] = "\n************** f **************\n";

TEST(ReportQuery, EncodesTheNameAndNothingElse) {
    const struct {
        std::string name, encoded;
    } cases[] = {
        {"", ""},
        {"Ab9", "Ab9"},
        {"A b", "A%20b"},
        {"a.b+%&=", "a%2eb%2b%25%26%3d"},
        {"\xC3\xA9\x7F\xFF", "%c3%a9%7f%ff"},
        {std::string(2000, 'x'), std::string(1023, 'x')},
        // The last character that fits whole; what would pass the limit ends the name.
        {std::string(1020, 'x') + ".yz", std::string(1020, 'x') + "%2e"},
        {std::string(1021, 'x') + ".yz", std::string(1021, 'x')},
        {std::string(1018, 'x') + "\xC3\xA9", std::string(1018, 'x') + "%c3"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ReportQuery(c.name.c_str(), "0x8 \xC3"),
                  "username=" + c.encoded + "&platform=Linux&IP=0x8 \xC3");
    }
}

TEST(ReportFile, TakesNoMoreThanItsTwoParts) {
    const ScratchDir dir;
    std::string data(10000, ' ');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>('!' + i % 89);
    const struct {
        std::string contents, taken;
    } cases[] = {
        {"", ""},
        {"text\n", "text\n"},
        {data.substr(0, 1024), data.substr(0, 1024)},
        {data.substr(0, 8192), data.substr(0, 8192)},
        {data.substr(0, 8193), data.substr(0, 1024) + data.substr(1025, 7168)},
        {data, data.substr(0, 1024) + data.substr(2832)},
        {"seen\0unseen"s, "seen"},
        {std::string(2000, 'a') + '\0' + data, std::string(1024, 'a') + data.substr(2832)},
        {data.substr(0, 9000) + '\0' + "unseen",
         data.substr(0, 1024) + data.substr(1839, 9000 - 1839)},
    };
    for (const auto& c : cases) {
        WriteFile("f", c.contents);
        EXPECT_EQ(AppendReportFile("before", "f"), std::string("before") + kHeader + c.taken);
    }
}

TEST(ReportFile, IsASectionEvenWhenItIsNoFile) {
    const ScratchDir dir;
    const std::string none = kHeader + "(no file)"s;
    EXPECT_EQ(AppendReportFile("", "f"), none);
    mkdir("f", 0755);
    EXPECT_EQ(AppendReportFile("", "f"), none);
    rmdir("f");
    mkfifo("f", 0600);
    EXPECT_EQ(AppendReportFile("", "f"), none) << "and nobody waits for a writer";
    unlink("f");
    WriteFile("f", "secret");
    chmod("f", 0);
    EXPECT_EQ(AppendReportFile("", "f"), access("f", R_OK) == 0 ? kHeader + "secret"s : none);
}

TEST(BugReport, ArrivesByteForByte) {
    const ScratchDir dir;
    WriteFile("errors.log", "oops\n");
    WriteFile("tarn.cfg", std::string(9000, 't'));
    ReportReceiver receiver;
    if (!receiver.Listens()) GTEST_SKIP() << "port 80 is not to be had";
    auto result =
        std::async(std::launch::async, SubmitBugReport, "A b", "It \xC3\xA9 crashed\n", "0x1234");
    const auto section = [](const std::string& name, const std::string& contents) {
        return "\n************** " + name + " **************\n" + contents;
    };
    const std::string body =
        "It \xC3\xA9 crashed\n" + section("halcyrix.lfv", "(no file)") +
        section("errors.log", "oops\n") + section("openglerr.log", "(no file)") +
        section("openglinfo.log", "(no file)") + section("config.ini", "(no file)") +
        section("tarn.cfg", std::string(8192, 't'));
    EXPECT_EQ(receiver.Receive("HTTP/1.1 204 No Content\r\n\r\n"),
              "POST /x/postbug?username=A%20b&platform=Linux&IP=0x1234 HTTP/1.1\n"
              "Host: 127.0.0.1\nContent-Length: " +
                  std::to_string(body.size()) + "\n\n" + body);
    EXPECT_EQ(result.get(), 204);
}

TEST(BugReport, GivesTheStatusOfWhateverComesBack) {
    ReportReceiver receiver;
    if (!receiver.Listens()) GTEST_SKIP() << "port 80 is not to be had";
    const struct {
        std::string reply;
        int status;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\n\r\n", 200},
        {"HTTP/1.1\n404", 404},
        {"", 0},
        {"word", 0},
        {"HTTP/1.1 OK 200", 0},
        {"\0 200"s, 0},
        {std::string(255, 'x'), 0},
        {std::string(250, 'x') + " 2000 OK", 2000},
        {std::string(251, 'x') + " 2000 OK", 200},  // cut after 255 bytes
        {std::string(1000, ' '), 0},
    };
    for (const char* query : {static_cast<const char*>(nullptr), ""}) {
        for (const auto& c : cases) {
            auto result =
                std::async(std::launch::async, PostBugReport, "127.0.0.1", "body", 4, query);
            EXPECT_EQ(receiver.Receive(c.reply),
                      "POST /x/postbug HTTP/1.1\nHost: 127.0.0.1\nContent-Length: 4\n\nbody");
            EXPECT_EQ(result.get(), c.status) << c.reply.substr(0, 300);
        }
    }
}

TEST(BugReport, TellsWhyNothingWasSent) {
    EXPECT_EQ(PostBugReport("host.invalid", "", 0, nullptr), -1);
    EXPECT_EQ(PostBugReport("127.0.0.1", "", 0, nullptr), -3);
}

}  // namespace
