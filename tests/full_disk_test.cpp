// The disk fills up at every write in turn: the session says so or succeeds, the records survive,
// and the next start with room again finishes.

#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>

#include "tests/support/headless_updater.h"
#include "tests/support/private_network.h"
#include "tests/support/served_game.h"

namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

// Sizes below and above the pieces in which files are written; some end with a whole piece.
Tree SmallGame() {
    return {{"linux64upd/update.rlb", SeededBytes(9000, 1)},
            {"linux64/halcyrix", SeededBytes(8190 * 2, 2)},
            {"linux64/drivers/lib.so", SeededBytes(12288, 3)},
            {"common/manual.html", "<html>The manual.</html>\n"},
            {"common/data/large", SeededBytes(40000, 4)}};
}

Tree SmallGameChanged() {
    Tree tree = SmallGame();
    tree["linux64upd/update.rlb"].insert(4000, "a change");
    tree["common/data/large"].insert(20000, "a change");
    tree["common/data/new"] = SeededBytes(5000, 5);
    return tree;
}

// What a player reads when a disk is full.
const char* const kWords[] = {"can't open ", "(probably a full harddrive)", "Can't write halcyrix",
                              "Your harddrive is full"};

constexpr char kForeignRecord[] = "12345678 7\n";  // of another set of components

// Where a player's home is, and how room runs out there.
class Home {
public:
    virtual ~Home() = default;
    virtual void LeaveRoom(size_t bytes) = 0;
    virtual void MakeRoom() = 0;
};

// A disk of its own, on which all files share the room.
class HomeOnSmallDisk : public Home {
public:
    static constexpr size_t kFirst = 0, kStep = 4096;

    ~HomeOnSmallDisk() override { umount2(m_path.c_str(), MNT_DETACH); }
    bool Mount() { return MountSmallFileSystem(m_path.c_str(), kAmple); }
    void LeaveRoom(size_t bytes) override {
        const fs::space_info space = fs::space(m_path);
        Resize(space.capacity - space.free + bytes);
    }
    void MakeRoom() override { Resize(kAmple); }

private:
    static constexpr size_t kAmple = 1 << 20;

    void Resize(size_t bytes) {
        const std::string options = "size=" + std::to_string(bytes);
        ASSERT_EQ(mount(nullptr, m_path.c_str(), nullptr, MS_REMOUNT, options.c_str()), 0);
    }

    const std::string m_path = fs::current_path();
};

// A limit on the size of each file.
class HomeOfSmallFiles : public Home {
public:
    static constexpr size_t kFirst = 30, kStep = 1500;

    ~HomeOfSmallFiles() override { MakeRoom(); }
    static bool Mount() { return true; }
    void LeaveRoom(size_t bytes) override {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = std::min<rlim_t>(bytes, limit.rlim_max);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    void MakeRoom() override { LeaveRoom(RLIM_INFINITY); }
};

class FullDisk : public StoreTest {
protected:
    // One start. Returns whether both sessions succeeded; `said` is the log.
    bool Start() {
        RecordingLog log;
        HeadlessUpdater updater;
        UpdateServer server(&updater.loop, store.get(), OnHost("127.0.0.1"));
        const auto results = updater.Run();
        said = log.Text();
        return results.own >= 0 && results.game >= 0;
    }

    bool SaidWhy() const {
        return std::any_of(std::begin(kWords), std::end(kWords),
                           [this](const char* words) { return said.find(words) != said.npos; });
    }

    // Starts with this much room, then with enough. Returns whether the first was all right, too.
    bool StartTwice(Home* home, size_t room, const Tree& installed, const Tree& latest) {
        for (const auto& [name, data] : installed) WriteFile(name.substr(name.find('/') + 1), data);
        const bool isUpdate = !installed.empty();
        const std::string records =
            kForeignRecord + (isUpdate ? "07871091 1.0\n9fcdf44f 1.0\n"s : "");
        WriteFile("halcyrix.lfv", records);
        home->LeaveRoom(room);
        const bool succeeded = Start();
        const bool whole = succeeded && !SaidWhy();
        EXPECT_TRUE(succeeded || SaidWhy()) << said;
        const std::string kept = ReadFile("halcyrix.lfv");
        EXPECT_TRUE(kept.starts_with(kForeignRecord)) << kept;
        for (const char* key : {"07871091 1.", "9fcdf44f 1."}) {
            EXPECT_TRUE(!isUpdate || kept.find(key) != kept.npos) << kept;
        }
        if (whole) ExpectTree(latest);
        home->MakeRoom();
        EXPECT_TRUE(Start()) << said;
        ExpectTree(latest);
        EXPECT_EQ(ReadFile("halcyrix.lfv"), kForeignRecord + "07871091 1.1\n9fcdf44f 1.1\n"s);
        return whole;
    }

    // The same with ever more room, each time in a new home, until there is enough.
    template <typename AnyHome>
    void RunOutOfRoom() {
        const Tree latest = SmallGameChanged();
        Publish("1.0", SmallGame());
        Publish("1.1", latest);
        for (const Tree& installed : {Tree(), SmallGame()}) {
            bool enough = false;
            int starts = 0;
            for (size_t room = AnyHome::kFirst; !enough && !HasFailure(); room += AnyHome::kStep) {
                SCOPED_TRACE(std::to_string(room) + " bytes of room");
                const ScratchDir directory;
                AnyHome home;
                if (!home.Mount()) GTEST_SKIP() << "no file system can be mounted here";
                fs::current_path(directory.Path());
                enough = StartTwice(&home, room, installed, latest);
                ++starts;
            }
            printf("%d starts, the last with enough room\n", starts);
            EXPECT_GT(starts, 5);
        }
    }

    std::string said;
};

TEST_F(FullDisk, AtEveryWriteLosesNothing) {
    RunOutOfRoom<HomeOnSmallDisk>();
}

TEST_F(FullDisk, InTheMiddleOfAnyFileLosesNothing) {
    RunOutOfRoom<HomeOfSmallFiles>();
}

}  // namespace
