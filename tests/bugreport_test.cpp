// The crash report on its way to a receiver that is not always friendly.

#include <future>

#include "bugreport/post.h"
#include "bugreport/report.h"
#include "bugreport/submit.h"
#include "tests/support/scratch_dir.h"

namespace {

using std::string_literals::operator""s;

std::string Section(const std::string& name, const std::string& contents = "(no file)") {
    return "\n************** " + name + " **************\n" + contents;
}

TEST(Report, TakesNoMoreThanTwoPartsOfAFile) {
    const ScratchDir dir;
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
        EXPECT_EQ(AppendReportFile("before", "f"), "before" + Section("f", taken));
    }
    chmod("f", 0);
    EXPECT_EQ(AppendReportFile("", "f"), Section("f"));
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
    const std::string body = "It \xC3\xA9 crashed\n" + Section("halcyrix.lfv") +
                             Section("errors.log", "oops\n") + Section("openglerr.log") +
                             Section("openglinfo.log") + Section("config.ini") +
                             Section("tarn.cfg", std::string(8192, 't'));
    // An encoded name has at most 1023 characters: what would pass the limit ends it.
    const std::string x1020(1020, 'x'), x250(250, 'x');
    const std::tuple<std::string, std::string, std::string, int> cases[] = {
        {"A b", "A%20b", "HTTP/1.1 204 No Content\r\n\r\n", 204},
        {"9.+%&= \xC3\x7F", "9%2e%2b%25%26%3d%20%c3%7f", "HTTP/1.1\n404", 404},
        {x1020 + ".y", x1020 + "%2e", x250 + "x 2000 OK", 200},  // cut after 255 bytes
    };
    for (const auto& [name, encoded, reply, status] : cases) {
        auto result = std::async(std::launch::async, SubmitBugReport, name.c_str(),
                                 "It \xC3\xA9 crashed\n", "0x8 \xC3");
        const int fd = accept(listening, nullptr, nullptr);
        const std::string request =
            "POST /x/postbug?username=" + encoded + "&platform=Linux&IP=0x8 \xC3 HTTP/1.1\n" +
            "Host: 127.0.0.1\nContent-Length: " + std::to_string(body.size()) + "\n\n" + body;
        std::string received(request.size(), '\0');
        recv(fd, received.data(), received.size(), MSG_WAITALL);
        EXPECT_EQ(received, request);
        EXPECT_EQ(send(fd, reply.data(), reply.size(), 0), ssize_t(reply.size()));
        close(fd);
        EXPECT_EQ(result.get(), status) << reply;
    }
    close(listening);
}

}  // namespace
