// Stores as the maker's tool leaves them.
#include "store/store.h"

#include "lib/checksum.h"
#include "store/publisher.h"
#include "tests/support/program.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;
using namespace std::literals;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// What a shell says, after its exit status. The tool stands for itself.
std::string Sh(const std::string& commands) {
    std::string said;
    const int status =
        RunProgram({"sh", "-c", "tool() { " RELEASE_TOOL " \"$@\"; }; " + commands}, &said);
    return std::to_string(status) + " " + said;
}

std::string Publish(const std::string& version, const std::string& rest = "") {
    return Sh("tool publish store " + version + " linux64=game " + rest);
}

// With a file that is longer by a letter than before.
std::string PublishNext(const std::string& version) {
    WriteFile("game/halcyrix", ReadFile("game/halcyrix") + version.back());
    return Publish(version);
}

std::unique_ptr<Store> Open() {
    std::string error;
    return Store::Open("store", &error);
}

std::string Sequences() {
    std::string sequences;
    for (const auto& release : Open()->Releases()) sequences += std::to_string(release->Sequence());
    return sequences;
}

// Calls back before each step of the work.
struct Observer : PublishObserver {
    void Warn(const std::string&) override {}
    void Progress(const char* work, size_t, size_t, const std::string& name) override {
        onStep(work + " "s + name);
    }
    std::function<void(const std::string&)> onStep;
};

struct StoreTest : testing::Test {
    StoreTest() {
        WriteFile("game/halcyrix", SeededBytes(20000, 1));
        WriteFile("game/same", SeededBytes(5000, 2));
        Sh("chmod +x game/halcyrix");
    }
    ScratchDir scratch;
};

// Sorted by name, "common-extra" comes before "common".
const char kManifest[] =
    "halcyrix-release 1\nsequence 7\nversion 1.4-\xC3\xA4/..\nfirst-index 300\n"
    "component common\ncomponent common-extra\ncomponent linux64\n"
    "file 300 00000001 0 common-extra/b\nfile 301 0badf00d 4294967295 common/a b/c\n"
    "file 302 00000002 3 linux64/halcyrix\n"
    "patch 303 00000003 4 1.2 common/a b/c\npatch 304 00000005 6 1.3 common/a b/c\n"
    "next-index 305\n";

bool Accepts(const std::string& body, size_t damaged_byte = ~size_t{0}, size_t size = ~size_t{0}) {
    char last[16];
    const auto checksum = Checksum(body.data(), uint32_t(body.size()), kFileChecksumStart);
    snprintf(last, sizeof last, "end %08x\n", checksum);
    std::string text = (body + last).substr(0, size);
    if (damaged_byte < text.size()) text[damaged_byte] ^= 1 << damaged_byte % 8;
    Manifest manifest;
    std::string error;
    return ParseManifest(text, &manifest, &error) && FormatManifest(manifest) == text;
}

TEST(Manifest, IsRefusedWhenItIsDamagedOrImpossible) {
    EXPECT_TRUE(Accepts(kManifest));
    for (size_t i = 0; i < sizeof kManifest + 12; ++i) {
        EXPECT_FALSE(Accepts(kManifest, i)) << i;
        EXPECT_FALSE(Accepts(kManifest, ~size_t{0}, i)) << i;
    }
    for (const std::string change :
         {"sequence 7|sequence 0", "version 1.4|version 1 4", "nt common-extra|nt common",
          "common-extra/b|common/z", "common-extra/b|common/a b/c", "64/halcyrix|65/halcyrix",
          "64/halcyrix|64/../../x", "file 301|file 302", "patch 303|patch 302",
          " 00000001| ffffffff", "4 1.2 common/a b/c|4 1.2 common/other",
          "6 1.3 common|6 1.2 common", "305|306"}) {
        std::string body = kManifest;
        const std::string from = change.substr(0, change.find('|'));
        body.replace(body.find(from), from.size(), change.substr(from.size() + 1));
        EXPECT_FALSE(Accepts(body)) << change;
    }
}

TEST_F(StoreTest, ForetellsWhatPlayersGetAndThenHoldsIt) {
    Sh("mkdir game/empty; cd game/empty; touch $(seq 1196)");
    WriteFile("game/gone", "gone");
    WriteFile("game/disguised", "before");
    EXPECT_THAT(Publish("1.0", "--dry-run"),
                StartsWith("0 first installation: 25,010 bytes; it asks for each file by itself, "
                           "1,200 files: 1.0 minutes at 50 ms before the first byte\n"));
    EXPECT_FALSE(fs::exists("store"));
    ASSERT_THAT(Sh("umask 077; tool publish store 1.0 linux64=game"),
                HasSubstr("published 1.0: 1200 files of 25010 bytes, 0 patches"));
    EXPECT_EQ(Sh("find store ! -perm -444 -o -type d ! -perm -555"), "0 ");

    Sh("rm game/gone; cp -p game/disguised time; cp -a store before");
    WriteFile("game/new", "brand n");
    WriteFile("game/halcyrix", ReadFile("game/halcyrix") + "!");
    WriteFile("game/disguised", "behind");
    Sh("touch -r time game/disguised");
    std::string said = Publish("1.1", "--dry-run");
    EXPECT_THAT(said, HasSubstr("from 1.0: 2 files changed, 1 added, 1 removed; 20,014 bytes "
                                "whole, 29 with patches\n"));
    EXPECT_THAT(said, HasSubstr("too large: linux64/disguised from 1.0\n"));
    EXPECT_EQ(Sh("diff -r store before"), "0 ");

    ASSERT_THAT(Publish("1.1"), HasSubstr(", 1 patches"));
    EXPECT_EQ(Sh("diff -r store/releases/000002/files/linux64 game"), "0 ");
    const std::string alone =
        Sh("find store/releases/000002 -type f -links 1 -printf '%s\\n' |"
           "awk '{ bytes += $1 } END { printf \" %d bytes of\", bytes }'");
    std::erase(said, ',');
    EXPECT_THAT(said, HasSubstr(alone.substr(2)));
    EXPECT_THAT(Sh("tool check store"), HasSubstr("2 releases, 2401 files"));
}

TEST_F(StoreTest, TellsAllThatIsWrongAndChangesNothing) {
    PublishNext("1");
    Sh("cp -a store before; mkdir empty bad bad/halcyrix.vtm bad/halcyrix.patches; cd bad;"
       "touch 'a\nb' halcyrix.lfv halcyrix.vtm/x halcyrix.patches/x t t.tmp; truncate -s 4G huge;"
       "mkfifo fifo; ln -s ../game folder; ln -s nowhere link");
    const std::string said =
        Sh("tool publish store '1 0' linux64=bad linux64=none ..=game a/b=game common=empty");
    for (const char* problem :
         {"1 0\" has a blank", "\"linux64\" is given twice", "none: No such file", "\"..\" names",
          "\"a/b\" has a slash", "empty: component \"common\" would be without files", "a control",
          "\"common\" is in no earlier release", "halcyrix.lfv: is", "halcyrix.vtm/x: is",
          "halcyrix.patches/x: is", "t.tmp: the updater uses", "huge: has 4 GiB", "fifo: neither",
          "folder: neither", "link: No such file"}) {
        EXPECT_THAT(said, HasSubstr(problem));
    }
    const std::string longest(117, 'v');
    for (const std::string run :
         {"'' linux64=game", "1 linux64=game", "2 linux64=game/same", "2 linux64=."}) {
        EXPECT_THAT(Sh("tool publish store " + run), StartsWith("1 ")) << run;
    }
    EXPECT_THAT(Publish(longest + "v"), HasSubstr("longer than 117"));
    EXPECT_EQ(Sh("diff -r store before"), "0 ");
    EXPECT_THAT(Publish(longest, "common=game --new-component"), HasSubstr("published"));
}

TEST_F(StoreTest, WarnsOfWhatWillSurprisePlayers) {
    Sh("mv game/halcyrix game/tool; mkdir game/.git upd upd/tool; cd game;"
       "touch .git/HEAD ../outside ../upd/same ../upd/tool/x; ln -s ../outside out; ln -s same "
       "in");
    const std::string said = Publish("1", "linux64upd=upd");
    for (const char* warning :
         {"run: linux64/tool\n", "a dot: linux64/.git/HEAD\n", "out of game: linux64/out\n",
          "file halcyrix, which players run, in: linux64\n", "file update.rlb, which players run",
          "linux64/same and linux64upd/same are the same file",
          "linux64/tool and linux64upd/tool/x cannot both be"}) {
        EXPECT_THAT(said, HasSubstr(warning));
    }
}

TEST_F(StoreTest, PatchesFromTheLastReleasesOfTheComponent) {
    const auto from = [](const std::string& version) {
        std::string versions;
        for (const auto& patch : Open()->Find(version)->Patches()) versions += patch.fromVersion;
        return versions;
    };
    for (const std::string version : {"1", "2", "3", "4"}) {
        PublishNext(version);
        Sh("tool publish store " + version + "u linux64upd=game --new-component");
    }
    EXPECT_EQ(from("4"), "123");
    Publish("5", "--patches-from 4");
    EXPECT_EQ(from("5"), "123");  // what version 4 has stays
    Sh("printf x | dd of=store/releases/000003/files/linux64/halcyrix conv=notrunc");
    WriteFile("game/halcyrix", ReadFile("game/halcyrix") + "6");
    EXPECT_THAT(Publish("6", "--patches-from 5"), HasSubstr("damaged: linux64/halcyrix from 2\n"));
    EXPECT_EQ(from("6"), "1345");
    EXPECT_THAT(PublishNext("7 --memory 1"), HasSubstr("(--memory): linux64/halcyrix from"));
}

TEST_F(StoreTest, IsTheSameWithAnyNumberOfJobs) {
    for (const char* version : {"1", "2", "3"}) {
        for (unsigned i = 0; i < 20; ++i) {
            WriteFile("game/" + std::to_string(i), SeededBytes(5000 + i, i) + version);
        }
        for (const std::string jobs : {"1", "2", "8"}) {
            EXPECT_EQ(Sh("tool publish store" + jobs + " " + version + " linux64=game --jobs " +
                         jobs + " --memory 100M >/dev/null && diff -r store1 store" + jobs),
                      "0 ");
        }
    }
    EXPECT_THAT(Sh("tool check store8"), HasSubstr("126 files"));
}

TEST_F(StoreTest, StaysAsItIsWhenFilesChangeOrSomebodyElsePublishes) {
    PublishNext("1");
    Sh("cp -a store before; cp -a game good");
    for (const std::string change :
         {"tool publish store 2 linux64=good", "tool prune store --keep 1",
          "truncate -s 6000 game/same", "touch game/zzz", "rm game/halcyrix",
          "cp game/same other; mv other game/same"}) {
        Observer observer;
        std::string said;
        observer.onStep = [&](const auto& step) {
            if (step == "storing linux64/same") said = Sh(change);
        };
        Publisher publisher({"store", "3", {{"linux64", "game"}}}, &observer);
        std::vector<std::string> problems;
        const bool prepared = publisher.Prepare(&problems);
        EXPECT_NE(prepared, problems.size() == 1) << change;
        EXPECT_EQ(prepared, said.find("somebody else") != said.npos) << change;
        Sh("rm -rf game; cp -a good game");
    }
    EXPECT_EQ(Sh("diff -r store before"), "0 ");
}

TEST_F(StoreTest, PassesOverDamagedReleasesAndSaysWhatToDo) {
    PublishNext("1");
    PublishNext("2");
    Sh("cp -a store good");
    // What damages the second release and what the check then says; servers see the first six.
    const char* const cases[][2] = {
        {"truncate -s 1 $file", "halcyrix: has 1 bytes instead of"},
        {"rm patches/00000005", "patches/00000005: is missing"},
        {"chmod 0 $file", "halcyrix: is missing or cannot be read"},
        {"truncate -s 50 manifest", "the manifest is damaged"},
        {"cp -r . ../000009", "000009: has the version of"},
        {"mv ../000002 ../000009", "000009: does not bear the release's sequence number"},
        {"printf x | dd of=$file conv=notrunc", "halcyrix: has other contents"},
        {"touch $file.orig", "halcyrix.orig: is not in the manifest"},
        {"echo 5 >../../reserved", "reserved: damaged"}};
    for (const auto& [damage, says] : cases) {
        EXPECT_THAT(Sh("tool check store"), HasSubstr(" 0 problems"));
        Sh("cd store/releases/000002; file=files/linux64/halcyrix; "s + damage);
        EXPECT_THAT(Sh("tool check store"), HasSubstr(says));
        EXPECT_EQ(Open()->Damaged().size(), &damage < &cases[6][0]) << damage;
        Sh("rm -rf store; cp -a good store");
    }

    const auto served = Open();
    Sh("mv store/releases/000002/files/linux64 moved");
    served->Doubt(*served->Find("2"));
    EXPECT_THAT(served->TakeNews(), testing::ElementsAre(HasSubstr("000002 is damaged")));
    EXPECT_EQ(served->Latest({"linux64"})->Version(), "1");
    EXPECT_THAT(Sh("tool check store"), HasSubstr("halcyrix-release withdraw store 2\""));
    EXPECT_THAT(Sh("tool list store"), HasSubstr("nobody: damaged"));
    EXPECT_THAT(Sh("tool prune store --keep 1"), HasSubstr("0 releases removed, 1 kept"));
    EXPECT_THAT(Publish("2"), HasSubstr("published already"));
    EXPECT_THAT(PublishNext("3"), HasSubstr("from 1: 1 files changed"));
    served->Refresh();
    EXPECT_EQ(served->Latest({"linux64"})->Version(), "3");
    Sh("mv moved store/releases/000002/files/linux64");
    while (!served->Find("2")) served->Refresh(), usleep(10000);
    EXPECT_THAT(served->TakeNews(), testing::ElementsAre("release 000002 is whole again"));
}

TEST_F(StoreTest, GivesNoNumberTwice) {
    for (const char* version : {"1", "2"}) Publish(version, "common=game --new-component");
    const auto served = Open();
    const uint64_t next = served->Find("2")->NextIndex();
    EXPECT_THAT(Sh("tool withdraw store 2"), HasSubstr("  linux64+common\n"));
    served->Refresh();
    EXPECT_EQ(served->Latest({"linux64"})->Version(), "1");
    EXPECT_THAT(Sh("tool withdraw store 2"), StartsWith("1 "));
    Publish("3");
    EXPECT_EQ(Sequences(), "13");
    EXPECT_GE(Open()->Find("3")->FirstIndex(), next);

    Sh("rm store/reserved; truncate -s 9 store/releases/000003/manifest");
    EXPECT_THAT(Publish("4"), HasSubstr("nobody knows which numbers"));
    WriteFile("store/reserved", "halcyrix-reserved 1\nsequence 5\nindex 4294967292\n");
    EXPECT_THAT(Sh("tool withdraw store 000003"), StartsWith("0 "));
    EXPECT_THAT(Publish("5"), StartsWith("0 "));
    EXPECT_THAT(Publish("6"), HasSubstr("no file index is left"));
}

TEST_F(StoreTest, KeepsTheNewestReleaseOfAnyComponents) {
    // How many to keep, which are kept, and the components of each release by a letter.
    for (const char* row : {"2 23 g g g", "3 123 g g g", "1 24 g u g g", "1 123 gu g u",
                            "1 3 gu g gu", "1 34 ab bc abc b"}) {
        std::istringstream words(row);
        std::string keep, kept, letters, publish = "rm -rf store;";
        words >> keep >> kept;
        while (words >> letters) {
            publish += "tool publish store " + std::to_string(publish.size()) + " --new-component";
            for (const char letter : letters) publish += " "s + letter + "=game";
            publish += ";";
        }
        // What a killed pruning leaves does not stay.
        EXPECT_THAT(Sh(publish + "mkdir store/incoming.removed.000001; tool prune store --keep " +
                       keep + " && ls store"),
                    HasSubstr("kept\nlock\nreleases\nreserved\n"));
        EXPECT_EQ(Sequences(), kept) << row;
    }
}

TEST_F(StoreTest, IsWorkedOnByAToolThatTellsUsageFromProblems) {
    WriteFile("bad", "x");
    Sh("cp game/same old; cp old made; cp old new; echo new >>new");
    // What follows the bar begins what is said.
    for (const std::string row :
         {"|2 A subcommand is required", "list --version|0 halcyrix-release ",
          "publish store 1 game|2 COMPONENT=DIR: game is not", "prune game --keep 0|2 --keep",
          "publish store 1 a=game --memory 0|2 --memory", "list game|1 halcyrix-release: game/rel",
          "publish store 1 a=game --patches-from -1|2 --patches-from", "check game|1 ",
          "prune game --keep 1|1 halcyrix-release: game/releases", "show bad|1 ",
          "diff old new patch|0 ", "diff old none other|1 halcyrix-release: none: No such",
          "show patch|0 copy ", "show patch >/dev/full|1 ", "apply made patch made|0 ",
          "apply none patch old|1 halcyrix-release: none: No such", "apply old bad old|1 "}) {
        EXPECT_THAT(Sh("tool " + row.substr(0, row.find('|'))),
                    StartsWith(row.substr(row.find('|') + 1)));
    }
    EXPECT_EQ(Sh("cmp made new; cmp old game/same; ls"), "0 bad\ngame\nmade\nnew\nold\npatch\n");
}

}  // namespace
