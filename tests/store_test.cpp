// Stores as the maker's tool leaves them.
#include "store/store.h"

#include "lib/checksum.h"
#include "store/publisher.h"
#include "tests/support/program.h"
#include "tests/support/scratch_dir.h"

using testing::HasSubstr;

namespace {

// The shell functions of the rows: the tool, the versions that have a patch in a release, whether
// two folders are the same, the tool's publish, the same after a change, and what a full disk
// allows.
constexpr char kShell[] = R"(tool() { ")" RELEASE_TOOL R"(" "$@"; }
patched() { awk '/^patch/ { printf $5 }' "store/releases/$1/manifest"; }
same() { diff -r "$1" "$2" && echo the same; }
publish() { version=$1; shift; tool publish store "$version" --allow-empty linux64=game "$@"; }
next() { printf %s $1 >>game/halcyrix; publish "$@"; }
full() { trap '' XFSZ; ulimit -f $1; shift; "$@"; }
)";

// What a shell says, after its exit status.
std::string Sh(const std::string& commands) {
    std::string said;
    const int status = RunProgram({"sh", "-c", kShell + commands}, &said);
    return std::to_string(status) + " " + said;
}

// Each row is shell commands, then after each arrow a text that their output must have. The output
// begins with the exit status.
void Try(const std::vector<std::string>& rows) {
    for (const std::string& row : rows) {
        size_t arrow = row.find(" => "), next;
        const std::string said = Sh(row.substr(0, arrow));
        for (; arrow != row.npos; arrow = next) {
            next = row.find(" => ", arrow + 4);
            EXPECT_THAT(said, HasSubstr(row.substr(arrow + 4, next - arrow - 4))) << row;
        }
    }
}

struct StoreTest : testing::Test {
    StoreTest() {
        WriteFile("game/halcyrix", SeededBytes(20000, 1));
        WriteFile("game/same", SeededBytes(5000, 2));
        Sh("chmod +x game/halcyrix");
    }
    static std::unique_ptr<Store> Open() {
        std::string error;
        return Store::Open("store", &error);
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

bool Accepts(const std::string& text) {
    Manifest manifest;
    std::string error;
    return ParseManifest(text, &manifest, &error) && FormatManifest(manifest) == text;
}

std::string Sealed(const std::string& body) {
    char last[16];
    const auto checksum = Checksum(body.data(), uint32_t(body.size()), kFileChecksumStart);
    return body + std::string(last, size_t(snprintf(last, sizeof last, "end %08x\n", checksum)));
}

TEST(Manifest, IsRefusedWhenItIsDamagedOrImpossible) {
    std::string text = Sealed(kManifest);
    EXPECT_TRUE(Accepts(text));
    for (size_t i = 0; i < text.size(); ++i) {
        EXPECT_FALSE(Accepts(text.substr(0, i))) << i;
        text[i] ^= 1 << i % 8;
        EXPECT_FALSE(Accepts(text)) << i;
        text[i] ^= 1 << i % 8;
    }
    for (const std::string change :
         {"sequence 7|sequence 0", "sequence 7|sequence 7x", "version 1.4|version 1 4",
          "nt common-extra|nt common", "common-extra/b|common/z", "common-extra/b|common/a b/c",
          "64/halcyrix|65/halcyrix", "64/halcyrix|64/../../x", "file 301|file 302",
          "patch 303|patch 302", "305|306", " 00000001| ffffffff",
          "4 1.2 common/a b|4 1.2 common/b", "6 1.3 common|6 1.2 common"}) {
        std::string body = kManifest;
        const size_t bar = change.find('|');
        body.replace(body.find(change.substr(0, bar)), bar, change.substr(bar + 1));
        EXPECT_FALSE(Accepts(Sealed(body))) << change;
    }
}

TEST_F(StoreTest, ForetellsWhatPlayersGetAndThenHoldsIt) {
    Try({"cd game; mkdir 0; touch $(seq -f 0/%g 1195); echo gone >gone; echo before >small",
         "seq 30000 >game/large; publish 1.0 --dry-run => 0 first installation: 193,906 bytes"
         " => 1,200 files: 1.0 minutes at 50 ms before the first byte\n => not published",
         "ls => 0 game\n", "umask 077; publish 1.0 => 1.0: 1200 files of 193906 bytes, 0 patches",
         "find store ! -perm -444 -o -type d ! -perm -555; echo . => 0 .\n",
         "cd game; chmod 600 ../store/releases/000001/files/linux64/same; cp -a ../store ../before",
         "cd game; rm gone; echo new >new; printf ! >>halcyrix; touch -r large ../time",
         "cd game; echo behind >small; printf x | dd of=large conv=notrunc bs=1 seek=168890",
         "cd game; touch -r ../time small large", "publish 1.1 --dry-run; same store before => the",
         "publish 1.1 => too large: linux64/small from 1.0\n => , 2 patches\n => "
         "from 1.0: 3 files changed, 1 added, 1 removed; 188,906 bytes whole, 46 with patches\n",
         "same store/releases/000002/files/linux64 game => 0 the",
         "find store/releases/000002 ! -perm -444; echo . => 0 .\n",
         "tool check store => 0 2 rel"});
}

TEST_F(StoreTest, TellsAllThatIsWrongAndChangesNothing) {
    Try({"publish 1; cp -a store before; mkdir -p empty bad/halcyrix.vtm bad/halcyrix.patches",
         "cd bad; touch 'a\nb' halcyrix.lfv halcyrix.vtm/x halcyrix.patches/x t t.tmp; mkfifo fifo",
         "cd bad; truncate -s 4G huge; ln -s ../game folder; ln -s nowhere link",
         "tool publish store '1 0' linux64=bad linux64=none ..=game a/b=game common=empty"
         " => 1 0\" has a blank\n => \"linux64\" is given twice => none: No such file => \"..\" "
         "names"
         " => \"a/b\" has a slash => component \"common\" would be without files => a control"
         " => \"common\" is in no earlier release => halcyrix.lfv: is => halcyrix.patches/x: is"
         " => halcyrix.vtm/x: is => t.tmp: the updater uses => huge: has 4 GiB => fifo: neither"
         " => folder: neither => link: No such file => 1 halcyrix-release: ",
         "publish '' => 1 ", "publish 1 => published already",
         "publish $(printf %0118d 0) => longer than",
         "tool publish store 2 linux64=game/same => 1 ", "tool publish store 2 linux64=. => itself",
         "full 0 publish 2 => 1 => manifest: File too large",
         "echo >>game/halcyrix; full 8 publish 2 => halcyrix: File too large",
         "full 0 tool withdraw store 1 => 1 => reserved: File too large",
         "same store before => 0 the",
         "mkdir store/incoming.1; publish $(printf %0117d 0) common=game --new-component; ls store"
         " => 0 => patches\nlock\n"});
}

TEST_F(StoreTest, WarnsOfWhatWillSurprisePlayers) {
    Try(
        {"mkdir -p game/.git upd/tool; for i in 1 2 3 4 5; do touch game/.git/$i outside upd/same "
         "upd/tool/x; done",
         "cd game; mv halcyrix tool; ln -s ../outside out; ln -s same in",
         "publish 1 linux64upd=upd => run: linux64/tool\n => .git/2, linux64/.git/3 and 2 more\n"
         " => out of game: linux64/out\n => file halcyrix, which players run, in: linux64\n"
         " => file update.rlb, which players run => linux64/same and linux64upd/same are the same"
         " => linux64/tool and linux64upd/tool/x cannot both be",
         "cd game; mkdir t.tmp; touch t.tmp/x; for i in t $(printf %0252d); do seq 999 >$i; done",
         "publish 2 => make a file NAME.tmp: linux64/0",
         "cd game; for i in t 0*; do echo >>$i; done", "publish 3 => linux64/t\n => , 0 patches"});
}

TEST_F(StoreTest, TakesOnlyAnUpdaterForTheUpdater) {
    std::filesystem::create_directories("upd/lib");
    const std::string none =
        "publish 1 linux64upd=upd => 1 halcyrix-release: upd/update.rlb is no updater; "
        "--any-updater publishes it all the same ";
    const std::string file = "cd upd; updater='" UPDATER "'; ";
    Try({file + "echo text >update.rlb => 0 ", none + "(it is not an ELF file)",
         file + "head -c 9999 \"$updater\" >update.rlb => 0 ", none + "(it is incomplete)",
         file + "cp /bin/true update.rlb => 0 ", none + "(it has no note of an updater)",
         "printf '\\267' | dd of=upd/update.rlb bs=1 seek=18 conv=notrunc => 0 ",
         none + "(it is not a program for x86-64)", "publish 1 linux64upd=upd --any-updater => 0 ",
         file + "cp \"$updater\" update.rlb => 0 ", "publish 2 linux64upd=upd => 0 ",
         "tool show upd/update.rlb => 0 name     halcyrix-updater\nversion  1.2.0\nhost     upd",
         "cd upd; sed -i 's/update1\\.h/update9.h/; s/x11-2/x11-9/; s/GLIBC_2.3/GLIBC_9.3/' *.rlb",
         "publish 3 linux64upd=upd => the updater needs glibc 9.3 => before did not: "
         "libgtk-x11-9.0.so.0\n => other update hosts (update9.halcyrix.example, update2",
         "touch upd/lib/libgtk-x11-9.0.so.0; tool withdraw store 3 >made",
         "publish 4 linux64upd=upd 2>&1 | grep -c 'needs lib' => 1 0\n"});
}

TEST_F(StoreTest, HasPatchesFromTheLastReleasesOfTheComponent) {
    Try(
        {"for i in 1 2 3 4; do next $i; tool publish store u$i common=game --new-component "
         "--allow-empty; done",
         "publish 5 --patches-from 4 | grep -c ^from => 0 4", "patched 000007 => 0 123",
         "patched 000009 => 0 123",  // what version 4 has stays
         "printf x | dd of=store/releases/000003/files/linux64/halcyrix conv=notrunc => 0 ",
         "next 6 --patches-from 5 => release is damaged: linux64/halcyrix from 2\n",
         "patched 000010 => 0 1345", "next 7 --memory 1 => may have (--memory): linux64/halcyrix",
         // The maker changes a link to a published file in its place.
         "rm -r game; cp -al store/releases/000011/files/linux64 game; printf y >game/same",
         "truncate -s 5000 game/same; publish 8 => release 7 is damaged: store/releases/000011/",
         "tool check store 2>&1 | grep -c 12/files => 0\n"});
}

// Prepares version 3, and runs commands while a file is stored.
struct Meddler : WorkObserver {
    explicit Meddler(std::string what) : commands(std::move(what)) {
        PublishRequest request{"store", "3", {{"linux64", "game"}}};
        request.allowEmpty = true;
        prepared = PrepareRelease(request, this, &made, &problems);
    }
    void File(const std::string& name) override {
        if (name == "linux64/same") said = Sh(commands);
    }
    std::string commands, said;
    std::vector<std::string> problems{};
    PreparedRelease made;
    bool prepared;
};

TEST_F(StoreTest, StaysAsItIsWhenFilesChangeOrSomebodyElsePublishes) {
    Sh("publish 1; cp -a store before; cp -a game good");
    for (const char* commands :
         {"publish 2", "tool prune store --keep 1", "truncate -s 6000 game/same", "touch game/zzz",
          "rm game/halcyrix", "cp game/same other; mv other game/same"}) {
        const Meddler meddler(commands);
        EXPECT_EQ(meddler.prepared, meddler.said.find("somebody else") != std::string::npos);
        EXPECT_NE(meddler.prepared, meddler.problems.size() == 1) << commands;
        Sh("rm -rf game; cp -a good game");
    }
    Try({"same store before => 0 the"});
}

TEST_F(StoreTest, PassesOverDamagedReleasesAndSaysWhatToDo) {
    // A pruned release, as a check sees it that listed it before, is not missed.
    Sh("next 1; next 2; ln -s nowhere store/releases/000008; cp -a store good");
    // What damages the second release and what the check then says; servers see the first six.
    const std::string cases[] = {
        "truncate -s 1 $file => halcyrix: has 1 bytes",
        "rm patches/* => 1 halcyrix-release: => patches/00000005: is missing",
        "chmod 0 $file => halcyrix: is missing or cannot",
        "truncate -s 50 manifest => is damaged",
        "cp -r . ../000009 => 000009: has the version of => 000009: uses file indexes of",
        "mv \"$PWD\" ../000009 => 000009: does not bear",
        "printf x | dd of=$file conv=notrunc => halcyrix: has other contents",
        "touch $file.orig => halcyrix.orig: is not in the manifest",
        "echo 5 >../../reserved => reserved: damaged"};
    for (const std::string& row : cases) {
        Try({"tool check store => 0 2 releases, 5 files of => , 0 problems",
             "(cd store/releases/000002; file=files/linux64/halcyrix; " +
                 std::string(row).replace(row.find(" =>"), 0, "); tool check store")});
        EXPECT_EQ(Open()->Damaged().size(), &row < &cases[6]) << row;
        Sh("rm -rf store; cp -a good store");
    }

    const auto served = Open();
    Sh("for i in 1 2; do mv store/releases/00000$i/files moved$i; done");
    for (const char* version : {"1", "2"}) served->Doubt(*served->Find(version));
    EXPECT_THAT(served->TakeNews(), testing::ElementsAre(HasSubstr("000001 is damaged"),
                                                         HasSubstr("000002 is damaged")));
    EXPECT_EQ(served->Latest({"linux64"}), nullptr);
    Try({"tool check store => halcyrix-release withdraw store 2\"",
         "publish 2 => published already", "tool list store => nobody: damaged",
         "tool prune store --keep 1 => 0 releases removed, 0", "next 3 => 0 ",
         "chmod 0 store/releases/000002/patches; mv moved2 store/releases/000002/files => 0 "});
    const auto& reason = served->Damaged().at(2).reason;
    while (reason.find("patches/00000005: Permission") == reason.npos)
        served->Refresh(), usleep(10000);
    Sh("chmod 755 store/releases/000002/patches");
    while (!served->Find("2")) served->Refresh(), usleep(10000);
    EXPECT_THAT(served->TakeNews(), testing::ElementsAre("release 000002 is whole again"));
    Try({"tool withdraw store 1 => 0 withdrew 1 =>   -\n3  "});
    EXPECT_EQ(served->Latest({"linux64"})->Version(), "3");
}

TEST_F(StoreTest, GivesNoNumberTwice) {
    Sh("for i in 1 2; do publish $i common=game --new-component; done; rm store/reserved");
    const auto served = Open();
    const uint64_t next = served->Find("2")->NextIndex();
    Try({"tool withdraw store 2 => 0  linux64+common\n", "tool withdraw store 2 => 1 "});
    served->Refresh();
    EXPECT_EQ(served->Latest({"linux64"})->Version(), "1");
    Try({"publish 3; ls store/releases => 000001\n000003\n"});
    EXPECT_GE(Open()->Find("3")->FirstIndex(), next);
    Try({"rm store/reserved store/releases/000003/files/linux64/same => 0 ",
         "publish 4; ls store/releases => 000003\n000004\n",
         "rm store/reserved; truncate -s 9 store/releases/000004/manifest => 0 ",
         "publish 5 => used numbers are unknown",
         "printf 'halcyrix-reserved 1\nsequence 5\nindex 4294967292\n' >store/reserved => 0 ",
         "tool withdraw store 000004 => 0 ", "publish 5 => 0 ",
         "publish 6 => no file index is left"});
}

TEST_F(StoreTest, KeepsTheNewestReleaseOfAnyComponents) {
    // How many to keep, the components of each release by a letter, and which are kept; what a
    // killed pruning leaves is not.
    for (const std::string row : {"2 g g g => 2 3", "3 g g g => 1 2 3", "1 g u g g => 2 4",
                                  "1 gu g u => 1 2 3", "1 gu g gu => 3", "1 ab bc abc b => 3 4"}) {
        const size_t arrow = row.find(" =>");
        Try({"rm -rf store; set " + row.substr(0, arrow) +
             "; keep=$1; shift; for all; do version=v$version; tool publish store $version "
             "--allow-empty "
             "--new-component $(echo $all | sed 's/./ &=game/g'); done; cd store; "
             "mkdir incoming.removed.000001; tool prune . --keep $keep; "
             "echo $(ls) $(ls releases | sed s/^0*//) => lock releases reserved" +
             row.substr(arrow + 3) + "\n"});
    }
}

TEST_F(StoreTest, IsWorkedOnByAToolThatTellsUsageFromProblems) {
    Sh("echo x >bad; cp game/same old; cp old made; cp old patch.tmp; cp old made.tmp; cp old new; "
       "echo new >>new; mkfifo pipe; mkdir b");
    for (const std::string wrong :
         {"publish . 1 a=b --memory 0", "publish . 1 a=b --jobs 1025", "prune . --keep 0",
          "serve . --port 65536", "serve . --per-address -1", "serve . --client-rate 5x",
          "serve . --total-rate 99999999999999999999", "serve . --client-rate 1k --min-rate 2k",
          "serve . --total-rate 31999 --slots 32", "serve . --listen here", "serve . --metrics :80",
          "serve . --proxy-protocol x/8"}) {
        Try({"tool " + wrong + " => 2 halcyrix-release: --"});
    }
    Try({"tool => 2 halcyrix-release: a command",
         "tool list --version => 0 halcyrix-release ",
         "tool pubish => 2 halcyrix-release: there is no command \"pubish\" => \"publish\"\n",
         "truncate -s 600M b/f; script -qec '\"" RELEASE_TOOL
         "\" publish big 1 a=b --dry-run' /dev/null </dev/null | tr '\\r' '\\n' | grep -aoE "
         "'7lstoring  (0%|[1-9]).*of 6|a/f|\\[Kfirst' | LC_ALL=C sort -u => "
         "0 7lstoring  0%  0 B of 6\n7lstoring  => 6\n[Kfirst\na/f\n",
         "tool publish big 1 a=b --dry-run 2>&1 | grep -c storing => 1 0",
         "(tool publish j 1 a=game --json; tool list j --json; tool check j --json) 2>/dev/null | "
         "python3 -c 'import json, sys; print(json.loads(\"[\" + "
         "sys.stdin.read().replace(\"}\\n{\", \"},{\") + \"]\")[1][\"damaged\"])' "
         "=> 0 []",
         "tool serve --help | awk 'NR > 30 || length > 80' | wc -l => 0 0",
         "publish 1 x => 2 halcyrix-release: SOURCES: x is not COMPONENT=DIR",
         "tool prune game --keep 1 => 1 halcyrix-release: game is no store; \"halcyrix-release "
         "publish\"",
         "tool publish j 2 a=game; rm -r j => nothing has changed since version 1; --allow-empty",
         "tool diff patch.tmp new patch => 0 ",
         "umask 27; tool diff old new other && stat -c %a other; rm other => 0 640",
         "tool diff old new pipe => 1 halcyrix-release: pipe: is there and no regular file",
         "tool apply made.tmp patch made && cp old made => 0 ",
         "tool diff old none other => 1 halcyrix-release: none: No such",
         "tool show patch => 0 copy",
         "tool show patch >/dev/full => done, but",
         "tool apply made patch made => 0 ",
         "tool apply none patch old => 1 halcyrix-release: none: No",
         "touch nil; tool apply nil nil old; rm nil => release: nil: makes an empty file",
         "cmp made new; cmp old game/same; cmp old made.tmp; cmp old patch.tmp; "
         "rm -r b; ls => 0 "
         "bad\ngame\nmade\nmade.tmp\nnew\nold\npatch\npatch.tmp\npipe\n"});
}

}  // namespace
