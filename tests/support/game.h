// A game, published with the maker's tool and served to updaters.
#pragma once

#include <map>

#include "tests/support/program.h"
#include "tests/support/scratch_dir.h"

using Tree = std::map<std::string, std::string>;  // contents by "component/path"

// A small game in all three components. Its files have none, one and several packets, some with a
// full last packet. The next version changes, adds and removes files.
inline Tree FirstGame() {
    return {{"linux64upd/update.rlb", SeededBytes(9000, 1)},
            {"linux64/halcyrix", SeededBytes(60000, 2)},
            {"linux64/drivers/lib.so", SeededBytes(8190 * 2, 3)},
            {"common/manual.html", "<html>The manual.</html>\n"},
            {"common/data/large", SeededBytes(100000, 4)},
            {"common/data/gone", "not in the next version"},
            {"common/empty", ""}};
}
inline Tree NextGame() {
    Tree tree = FirstGame();
    tree["linux64upd/update.rlb"].insert(4000, "a change");
    tree["linux64/halcyrix"].replace(5000, 100, SeededBytes(150, 5));
    tree["common/data/large"].insert(20000, "a change");
    tree["common/data/new"] = SeededBytes(5000, 6);
    tree.erase("common/data/gone");
    return tree;
}

// The maker's tool, serving a store. It is ended by SIGTERM and must then end with status 0.
class ServingProgram : public Program {
public:
    ServingProgram(const std::string& store, const std::string& address,
                   std::vector<std::string> options = {})
        : Program(
              (options.insert(options.begin(), {RELEASE_TOOL, "serve", store, "--listen", address}),
               options)) {
        AwaitWords("serving ");
    }
    ~ServingProgram() {
        kill(Pid(), SIGTERM);
        EXPECT_EQ(Wait(), 0) << Said();
    }
};

// A store and a player's home in a scratch directory. The home is the working directory.
class GameTest : public testing::Test {
protected:
    GameTest() { Install("", {}); }

    std::string StorePath() const { return m_scratch.Path() / "store"; }
    std::filesystem::path Home() const { return m_scratch.Path() / "home"; }

    void Publish(const std::string& version, const Tree& tree) {
        const std::filesystem::path source = m_scratch.Path() / "source";
        std::filesystem::remove_all(source);
        for (const auto& [name, data] : tree) WriteFile(source / name, data);
        std::vector<std::string> command = {RELEASE_TOOL, "publish", "--any-updater", StorePath(),
                                            version};
        for (const auto& component : std::filesystem::directory_iterator(source)) {
            command.push_back(component.path().filename().string() + "=" +
                              component.path().string());
        }
        std::string said;
        ASSERT_EQ(RunProgram(command, &said), 0) << said;
    }

    // Replaces the home by one with the files of a tree. A version that is not empty is recorded
    // for the game and for the updater.
    void Install(const std::string& version, const Tree& tree) {
        std::filesystem::current_path(m_scratch.Path());
        std::filesystem::remove_all(Home());
        std::filesystem::create_directory(Home());
        std::filesystem::current_path(Home());
        for (const auto& [name, data] : tree) WriteFile(name.substr(name.find('/') + 1), data);
        if (version.empty()) return;
        WriteFile("halcyrix.lfv", "07871091 " + version + "\n9fcdf44f " + version + "\n");
    }
    // Checks that a tree is installed in the home, recorded as this version of the game.
    void ExpectInstalled(const std::string& version, const Tree& tree) {
        for (const auto& [name, data] : tree) {
            if (name.starts_with("linux64upd/")) continue;
            EXPECT_TRUE(ReadFile(name.substr(name.find('/') + 1)) == data) << name;
        }
        const std::string records = ReadFile("halcyrix.lfv");
        EXPECT_NE(records.find("9fcdf44f " + version + "\n"), std::string::npos) << records;
    }

private:
    ScratchDir m_scratch;
};
