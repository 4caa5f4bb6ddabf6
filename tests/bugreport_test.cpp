// The crash report on its way to a receiver that is not always friendly.
#include <sys/stat.h>

#include <future>

#include "bugreport/post.h"
#include "bugreport/report.h"
#include "bugreport/submit.h"
#include "tests/support/report_receiver.h"
#include "tests/support/scratch_dir.h"

namespace {

using std::string_literals::operator""s;

constexpr char kHeader[] = "\n************** f **************\n";

TEST(Report, EncodesTheNameAndNothingElse) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"Ab9", "Ab9"},
        {"a.b+%&= ", "a%2eb%2b%25%26%3d%20"},
        {"\xC3\xA9\x7F\xFF", "%c3%a9%7f%ff"},
        {std::string(2000, 'x'), std::string(1023, 'x')},
        // The last character that fits whole; what would pass the limit ends the name.
        {std::string(1020, 'x') + ".yz", std::string(1020, 'x') + "%2e"},
        {std::string(1021, 'x') + ".yz", std::string(1021, 'x')},
        {std::string(1018, 'x') + "\xC3\xA9", std::string(1018, 'x') + "%c3"},
    };
    for (const auto& [name, encoded] : cases) {
        EXPECT_EQ(ReportQuery(name.c_str(), "0x8 \xC3"),
                  "username=" + encoded + "&platform=Linux&IP=0x8 \xC3");
    }
}

TEST(Report, TakesNoMoreThanTwoPartsOfAFile) {
    const ScratchDir dir;
    std::string data(10000, ' ');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>('!' + i % 89);
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {data.substr(0, 1024), data.substr(0, 1024)},
        {data.substr(0, 8192), data.substr(0, 8192)},
        {data.substr(0, 8193), data.substr(0, 1024) + data.substr(1025, 7168)},
        {data, data.substr(0, 1024) + data.substr(2832)},
        {"seen\0unseen"s, "seen"},
    };
    for (const auto& [contents, taken] : cases) {
        WriteFile("f", contents);
        EXPECT_EQ(AppendReportFile("before", "f"), std::string("before") + kHeader + taken);
    }
    const std::string none = kHeader + "(no file)"s;
    chmod("f", 0);
    EXPECT_EQ(AppendReportFile("", "f"), none);
    std::filesystem::remove("f");
    EXPECT_EQ(AppendReportFile("", "f"), none);
    mkfifo("f", 0600);
    EXPECT_EQ(AppendReportFile("", "f"), none) << "and nobody waits for a writer";
}

TEST(Report, ArrivesByteForByte) {
    const ScratchDir dir;
    WriteFile("errors.log", "oops\n");
    WriteFile("tarn.cfg", std::string(9000, 't'));
    const ReportReceiver receiver;
    auto result =
        std::async(std::launch::async, SubmitBugReport, "A b", "It \xC3\xA9 crashed\n", "0x1234");
    std::string body = "It \xC3\xA9 crashed\n";
    for (const char* name : {"halcyrix.lfv", "errors.log", "openglerr.log", "openglinfo.log",
                             "config.ini", "tarn.cfg"}) {
        body += "\n************** "s + name + " **************\n";
        body += name == "errors.log"s ? "oops\n"
                : name == "tarn.cfg"s ? std::string(8192, 't')
                                      : "(no file)";
    }
    EXPECT_EQ(receiver.Receive("HTTP/1.1 204 No Content\r\n\r\n"),
              "POST /x/postbug?username=A%20b&platform=Linux&IP=0x1234 HTTP/1.1\n"
              "Host: 127.0.0.1\nContent-Length: " +
                  std::to_string(body.size()) + "\n\n" + body);
    EXPECT_EQ(result.get(), 204);
}

TEST(Report, GivesTheStatusOfWhateverComesBack) {
    EXPECT_EQ(PostBugReport("host.invalid", "", 0, nullptr), -1);
    EXPECT_EQ(PostBugReport("127.0.0.1", "", 0, nullptr), -3);
    const ReportReceiver receiver;
    const std::pair<std::string, int> cases[] = {
        {"HTTP/1.1 200 OK\r\n\r\n", 200},
        {"HTTP/1.1\n404", 404},
        {"", 0},
        {"word", 0},
        {"HTTP/1.1 OK 200", 0},
        {"\0 200"s, 0},
        {std::string(250, 'x') + " 2000 OK", 2000},
        {std::string(251, 'x') + " 2000 OK", 200},  // cut after 255 bytes
    };
    for (const auto& [reply, status] : cases) {
        auto result = std::async(std::launch::async, PostBugReport, "127.0.0.1", "body", 4,
                                 reply.empty() ? nullptr : "");
        EXPECT_EQ(receiver.Receive(reply),
                  "POST /x/postbug HTTP/1.1\nHost: 127.0.0.1\nContent-Length: 4\n\nbody");
        EXPECT_EQ(result.get(), status) << reply;
    }
}

}  // namespace
