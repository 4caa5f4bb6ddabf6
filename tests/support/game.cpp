#include "tests/support/game.h"

#include <csignal>
#include <set>

namespace fs = std::filesystem;

Tree FirstGame() {
    return {{"linux64upd/update.rlb", SeededBytes(9000, 1)},
            {"linux64/halcyrix", SeededBytes(60000, 2)},
            {"linux64/drivers/lib.so", SeededBytes(8190 * 2, 3)},
            {"common/manual.html", "<html>The manual.</html>\n"},
            {"common/data/large", SeededBytes(100000, 4)},
            {"common/data/gone", "not in the next version"},
            {"common/empty", ""}};
}

Tree NextGame() {
    Tree tree = FirstGame();
    tree["linux64upd/update.rlb"].insert(4000, "a change");
    tree["linux64/halcyrix"].replace(5000, 100, SeededBytes(150, 5));
    tree["common/data/large"].insert(20000, "a change");
    tree["common/data/new"] = SeededBytes(5000, 6);
    tree.erase("common/data/gone");
    return tree;
}

ServingProgram::ServingProgram(const std::string& store, const std::string& address,
                               const std::vector<std::string>& options)
    : Program([&] {
          std::vector<std::string> command = {RELEASE_TOOL, "serve", store, "--listen", address};
          command.insert(command.end(), options.begin(), options.end());
          return command;
      }()) {
    AwaitWords("serving ");
}

ServingProgram::~ServingProgram() {
    kill(Pid(), SIGTERM);
    EXPECT_EQ(Wait(), 0) << Said();
}

GameTest::GameTest() {
    Install("", {});
}

void GameTest::Publish(const std::string& version, const Tree& tree,
                       const std::vector<std::string>& options) {
    const fs::path source = m_scratch.Path() / "source";
    fs::remove_all(source);
    std::set<std::string> components;
    for (const auto& [name, data] : tree) {
        WriteFile(source / name, data);
        components.insert(name.substr(0, name.find('/')));
    }
    std::vector<std::string> command = {RELEASE_TOOL, "publish", StorePath(), version};
    for (const std::string& component : components) {
        command.push_back(component + "=" + (source / component).string());
    }
    command.insert(command.end(), options.begin(), options.end());
    std::string said;
    ASSERT_EQ(RunProgram(command, &said), 0) << said;
}

void GameTest::Install(const std::string& version, const Tree& tree) {
    fs::current_path(m_scratch.Path());
    fs::remove_all(Home());
    fs::create_directory(Home());
    fs::current_path(Home());
    for (const auto& [name, data] : tree) WriteFile(name.substr(name.find('/') + 1), data);
    if (!version.empty()) {
        WriteFile("halcyrix.lfv", "07871091 " + version + "\n9fcdf44f " + version + "\n");
    }
}

void GameTest::ExpectInstalled(const std::string& version, const Tree& tree) {
    for (const auto& [name, data] : tree) {
        if (name.starts_with("linux64upd/")) continue;
        EXPECT_TRUE(ReadFile(name.substr(name.find('/') + 1)) == data) << name;
    }
    const std::string records = ReadFile("halcyrix.lfv");
    EXPECT_NE(records.find("9fcdf44f " + version + "\n"), std::string::npos) << records;
}
