// The updater, killed anywhere: nothing is lost, and the next start that is left alone finishes.
//
// HALCYRIX_KILLS is the number of kills (36), HALCYRIX_SEED chooses the places.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <sstream>

#include "tests/support/environment.h"
#include "tests/support/headless_updater.h"
#include "tests/support/served_game.h"

namespace {

namespace fs = std::filesystem;

// What the updater last told the player, seen from outside its process.
char* sharedStatus = static_cast<char*>(
    mmap(nullptr, 128, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

[[noreturn]] void RunUpdater() {
    RecordingLog log;
    HeadlessUpdater updater;
    updater.onStatus = [](const char* text) { snprintf(sharedStatus, 128, "%s", text); };
    const auto results = updater.Run();
    _exit(results.own >= 0 && results.game >= 0 ? 0 : 1);
}

bool RunLeftAlone() {
    const pid_t child = fork();
    if (child == 0) RunUpdater();
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

// System calls among which a place to die is chosen. The last two sets hold what changes files, and
// what makes a change final.
enum CallSet { ANY, CHANGES, FINAL, CALL_SETS };

bool Holds(CallSet set, uint64_t call) {
    const bool final = call == SYS_unlink || call == SYS_rename || call == SYS_fsync;
    if (set != CHANGES) return set == ANY || final;
    return final || call == SYS_write || call == SYS_writev || call == SYS_openat ||
           call == SYS_mkdir;
}

// Starts the updater and kills it when `here` says so of the system call that it is about to make.
// Returns whether it was killed.
bool RunUntil(const std::function<bool(uint64_t call)>& here) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        RunUpdater();
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (WIFSTOPPED(status)) {
        __ptrace_syscall_info info{};
        if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
            ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        }
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && here(info.entry.nr)) kill(child, SIGKILL);
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

bool MayTrace() {
    const pid_t child = fork();
    if (child == 0) _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

using Records = std::map<std::string, std::string>;

// The versions by key.
Records ReadRecords() {
    Records records;
    std::istringstream text(fs::exists("halcyrix.lfv") ? ReadFile("halcyrix.lfv") : "");
    for (std::string key, version; text >> key >> version;) records[key] = version;
    return records;
}

Tree WithUpdater(Tree tree, unsigned seed) {
    tree["linux64upd/update.rlb"] = SeededBytes(60000, seed);
    return tree;
}

const Tree kOwn = {{"mine/keep", "the player's own"}, {"mine/screenshots/1.png", "a picture"}};

class Kill : public StoreTest {
protected:
    // A new home with the state of a kind of start.
    void GoHome(const std::string& kind) {
        fs::current_path(scratch.Path());
        fs::remove_all("home");
        fs::copy("state." + kind, "home", fs::copy_options::recursive);
        fs::current_path("home");
    }

    void MakeStates() {
        for (const char* kind : {"none", "old", "damaged"}) {
            for (const auto& [name, data] : kOwn) {
                WriteFile(scratch.Path() / (std::string("state.") + kind) / name.substr(5), data);
            }
        }
        Publish("1.0", first);
        const ServingProgram server(StorePath());
        for (const char* kind : {"old", "damaged"}) {
            fs::current_path(scratch.Path() / (std::string("state.") + kind));
            WriteFile("halcyrix.lfv", "12345678 7\n");  // of another set of components
            ASSERT_TRUE(RunLeftAlone());
        }
        Publish("1.1", second);
        ASSERT_TRUE(RunLeftAlone());
        fs::resize_file("halcyrix", 70000);
        WriteFile("data/5", "spoilt");
        fs::remove("data/6");
        fs::current_path(scratch.Path());
    }

    const Tree first = [] {
        Tree tree = WithUpdater(FirstGame(), 5);
        tree["common/large"] = SeededBytes(600000, 6);
        return tree;
    }();
    const Tree second = [this] {
        Tree tree = WithUpdater(Changed(first), 7);
        tree["common/large"].replace(300000, 9000, SeededBytes(20000, 8));
        return tree;
    }();
};

TEST_F(Kill, AnywhereLosesNothingAndTheNextStartFinishes) {
    if (!MayTrace()) GTEST_SKIP() << "the system does not let a process trace its children";
    const int wanted = NumberFromEnvironment("HALCYRIX_KILLS", 36);
    std::mt19937 random(static_cast<unsigned>(NumberFromEnvironment("HALCYRIX_SEED", 1)));
    MakeStates();
    const ServingProgram server(StorePath());
    const std::string kinds[] = {"none", "old", "damaged"};
    std::map<std::string, std::array<uint32_t, CALL_SETS>> calls;  // of a whole start
    for (const std::string& kind : kinds) {
        GoHome(kind);
        auto& counts = calls[kind];
        ASSERT_FALSE(RunUntil([&counts](uint64_t call) {
            for (const CallSet set : {ANY, CHANGES, FINAL}) counts[set] += Holds(set, call);
            return false;
        }));
        ExpectTree(second);
    }

    std::map<std::string, int> killed;  // by what was going on
    int kills = 0;
    for (int chain = 0; kills < wanted && !HasFailure(); ++chain) {
        const std::string& kind = kinds[chain % 3];
        GoHome(kind);
        for (unsigned links = 1 + random() % 3; links > 0 && kills < wanted; --links) {
            const Records before = ReadRecords();
            const auto set = static_cast<CallSet>(random() % CALL_SETS);
            uint32_t left = random() % calls[kind][set];
            uint64_t last = 0;
            if (!RunUntil([&](uint64_t call) {
                    last = call;
                    return Holds(set, call) && left-- == 0;
                })) {
                break;  // what a killed start leaves to do is less than a whole one
            }
            ++kills;
            ++killed[std::string(sharedStatus, strcspn(sharedStatus, " :"))];
            SCOPED_TRACE(kind + ", killed at system call " + std::to_string(last) + " in \"" +
                         sharedStatus + "\"");
            for (const auto& [key, version] : ReadRecords()) {
                const auto kept = before.find(key);
                EXPECT_TRUE(version == "1.1" || (kept != before.end() && kept->second == version));
            }
        }
        EXPECT_TRUE(RunLeftAlone());
        ExpectTree(second);
        Tree own = kOwn;
        if (kind != "none")
            own["common/data/1"] = first.at("common/data/1");  // not listed any more
        ExpectTree(own);
        Records records = ReadRecords();
        records.erase("12345678");  // lost when a write is cut off between deletion and renaming
        EXPECT_EQ(records, (Records{{"07871091", "1.1"}, {"9fcdf44f", "1.1"}})) << kind;
    }
    printf("%d kills:", kills);
    for (const auto& [doing, count] : killed) printf(" %s %d", doing.c_str(), count);
    printf("\n");
}

}  // namespace
