// Servers that spoil what they say, or never stop. Whatever one does, nothing outside the home
// changes, and what a session has not finished the next start does.

#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"
#include "update/messages.h"

namespace {

class HostileServer : public GameTest {};

TEST_F(HostileServer, MaySpoilEveryReplyInEveryWay) {
    const Tree first = {{"linux64/large", SeededBytes(10000, 1)}, {"common/new", "old"}};
    Tree next = first;
    next["linux64/large"] += "a change";
    next["common/new"] = SeededBytes(60, 3);
    next["common/empty"] = "";
    Publish("1.0", first);
    Publish("1.1", next);
    ServingProgram server(StorePath(), "127.0.0.2");
    std::mt19937 random(1);
    const auto bytes = [&](size_t size) { return SeededBytes(size, random()); };
    const std::pair<const char*, std::function<Instead(const std::string&)>> ways[] = {
        {"withheld", [](auto&) { return Instead{""}; }},
        {"doubled", [](auto& reply) { return Instead{FrameOf(reply) + FrameOf(reply)}; }},
        {"empty", [](auto&) { return Instead{FrameOf("")}; }},
        {"oversize", [](auto&) { return Instead{"\x1f\xff" + std::string(8191, 'x')}; }},
        {"random", [&](auto& reply) { return Instead{FrameOf(bytes(reply.size()))}; }},
        {"cut", [&](auto& reply) { return Instead{FrameOf(reply.substr(0, random() % 16))}; }},
        {"closed",
         [](auto& r) {
             return Instead{FrameOf(r).substr(0, 9), Instead::kHangUp};
         }},
    };
    for (const std::string version : {"", "1.0"}) {
        for (const auto& row : ways) {
            const auto& way = row.first;
            const auto& spoil = row.second;
            for (int spoilt = 0; spoilt < 20 && !HasFailure(); ++spoilt) {
                SCOPED_TRACE(std::to_string(spoilt) + " " + way + ", from " + version);
                Install(version, first);
                if (version.empty()) WriteFile("large", first.at("linux64/large").substr(0, 9000));
                WriteFile("mine", "the player's own");
                WriteFile("../outside", "untouched");
                {
                    const Rule rule = [&](const Passing& passing) -> std::optional<Instead> {
                        if (passing.isRequest || passing.number != spoilt) return {};
                        return spoil(passing.payload);
                    };
                    Relay relay(rule, 20);
                    Session hostile;
                    hostile.RunGame();
                }
                Session honest;
                EXPECT_GE(honest.RunGame(), 0) << honest.log.Text();
                ExpectInstalled("1.1", next);
                EXPECT_EQ(ReadFile("mine"), "the player's own");
                EXPECT_EQ(ReadFile("../outside"), "untouched");
            }
        }
    }
}

TEST_F(HostileServer, MaySendWithoutEnd) {
    const auto file = [](size_t n) { return Encode(FileListEntry{std::string(n, 'n'), 1, 1}); };
    const std::tuple<std::string, std::vector<std::string>, const char*> floods[] = {
        {"MOTD", {std::string(8000, 'x')}, "a message of the day without end!  aborting!\n"},
        {"GETV", {file(4080)}, "a file list without end!  aborting!\n"},
        {"GETV", std::vector(1000, file(1)), "a file list without end!  aborting!\n"},
    };
    for (const auto& [tag, packets, log] : floods) {
        Relay relay(Answer({{tag, packets}}, Instead::kAgainAndAgain));
        Session session;
        session.client.Start(tag == "MOTD", "linux64", nullptr);
        EXPECT_EQ(session.Run(), -1);
        EXPECT_THAT(session.log.Text(), testing::EndsWith(log));
    }
}

}  // namespace
