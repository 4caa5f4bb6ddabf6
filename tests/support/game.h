// A game that is published with the maker's tool and served to updaters.
#ifndef HALCYRIX_TESTS_SUPPORT_GAME_H
#define HALCYRIX_TESTS_SUPPORT_GAME_H

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/scratch_dir.h"

using Tree = std::map<std::string, std::string>;  // contents by "component/path"

// A small game in all three components, with files of none, one and several packets, some of them
// whole ones; and its next version, changed in places, with files that come and go.
Tree FirstGame();
Tree NextGame();

// The maker's tool as it serves a store. Ends with SIGTERM; it must then report success.
class ServingProgram : public Program {
public:
    ServingProgram(const std::string& store, const std::string& address,
                   const std::vector<std::string>& options = {});
    ~ServingProgram();
};

// Has a store and a player's home in a scratch directory. The home is the working directory.
class GameTest : public testing::Test {
protected:
    GameTest();

    std::string StorePath() const { return (m_scratch.Path() / "store").string(); }
    std::filesystem::path Home() const { return m_scratch.Path() / "home"; }

    void Publish(const std::string& version, const Tree& tree,
                 const std::vector<std::string>& options = {});

    // Puts a new home in the place of the old one: with the files of a tree and, unless it is
    // empty, the record of this version for the game and for the updater.
    void Install(const std::string& version, const Tree& tree);
    // Checks that a tree is installed in the home, recorded as this version of the game.
    void ExpectInstalled(const std::string& version, const Tree& tree);

private:
    ScratchDir m_scratch;
};

#endif
