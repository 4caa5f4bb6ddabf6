// The crash report on its way to a receiver that is not always friendly.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "bugreport/post.h"
#include "bugreport/report.h"
#include "bugreport/submit.h"
#include "tests/support/scratch_dir.h"

namespace {

using std::string_literals::operator""s;

TEST(Report, EncodesTheNameAndNothingElse) {
    const std::string x1020(1020, 'x');  // What would pass the limit of 1023 ends the name.
    const std::pair<std::string, std::string> cases[] = {
        {"Ab9.+%&= \xC3\xA9\x7F", "Ab9%2e%2b%25%26%3d%20%c3%a9%7f"},
        {x1020 + "xxxx", x1020 + "xxx"},
        {x1020 + ".yz", x1020 + "%2e"},
        {x1020 + "x.yz", x1020 + "x"},
    };
    for (const auto& [name, encoded] : cases) {
        EXPECT_EQ(ReportQuery(name.c_str(), "0x8 \xC3"),
                  "username=" + encoded + "&platform=Linux&IP=0x8 \xC3");
    }
}

TEST(Report, TakesNoMoreThanTwoPartsOfAFile) {
    const ScratchDir dir;
    const std::string header = "\n************** f **************\n";
    std::string data(10000, ' ');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>('!' + i % 89);
    const std::pair<std::string, std::string> cases[] = {
        {data.substr(0, 8192), data.substr(0, 8192)},
        {data.substr(0, 8193), data.substr(0, 1024) + data.substr(1025, 7168)},
        {data, data.substr(0, 1024) + data.substr(2832)},
        {"seen\0unseen"s, "seen"},
    };
    for (const auto& [contents, taken] : cases) {
        WriteFile("f", contents);
        EXPECT_EQ(AppendReportFile("before", "f"), "before" + header + taken);
    }
    chmod("f", 0);
    EXPECT_EQ(AppendReportFile("", "f"), header + "(no file)");
    std::filesystem::remove("f");
    mkfifo("f", 0600);
    EXPECT_EQ(AppendReportFile("", "f"), header + "(no file)") << "and nobody waits for a writer";
}

TEST(Report, ArrivesByteForByteAndGivesTheStatusOfWhateverComesBack) {
    EXPECT_EQ(SubmitBugReport("", "", ""), -3);
    EXPECT_EQ(PostBugReport("host.invalid", "", 0, nullptr), -1);
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address{AF_INET, htons(80), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening, 4), 0);
    const ScratchDir dir;
    WriteFile("errors.log", "oops\n");
    WriteFile("tarn.cfg", std::string(9000, 't'));
    std::string body = "It \xC3\xA9 crashed\n";
    for (const std::string name : {"halcyrix.lfv", "errors.log", "openglerr.log", "openglinfo.log",
                                   "config.ini", "tarn.cfg"}) {
        body += "\n************** " + name + " **************\n";
        body += name == "errors.log" ? "oops\n"
                : name == "tarn.cfg" ? std::string(8192, 't')
                                     : "(no file)";
    }
    const std::string request =
        "POST /x/postbug?username=A%20b&platform=Linux&IP=0x1234 HTTP/1.1\n"
        "Host: 127.0.0.1\nContent-Length: " +
        std::to_string(body.size()) + "\n\n" + body;
    const std::pair<std::string, int> cases[] = {
        {"HTTP/1.1 204 No Content\r\n\r\n", 204},
        {"HTTP/1.1\n404", 404},
        {"", 0},
        {"HTTP/1.1 OK 200", 0},
        {"\0 200"s, 0},
        {std::string(250, 'x') + " 2000 OK", 2000},
        {std::string(251, 'x') + " 2000 OK", 200},  // cut after 255 bytes
    };
    for (const auto& [reply, status] : cases) {
        auto result = std::async(std::launch::async, SubmitBugReport, "A b",
                                 "It \xC3\xA9 crashed\n", "0x1234");
        const int fd = accept(listening, nullptr, nullptr);
        std::string received(request.size(), '\0');
        EXPECT_EQ(recv(fd, received.data(), received.size(), MSG_WAITALL), ssize_t(request.size()));
        EXPECT_EQ(received, request);
        EXPECT_EQ(send(fd, reply.data(), reply.size(), 0), ssize_t(reply.size()));
        close(fd);
        EXPECT_EQ(result.get(), status) << reply;
    }
    close(listening);
}

}  // namespace
