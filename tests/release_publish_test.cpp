#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <set>

#include "store/checker.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"

using namespace std::literals;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Publishing : public testing::Test {
protected:
    Publishing() {
        WriteFile("game/data/big", SeededBytes(20000, 1));
        WriteFile("game/data/same", SeededBytes(5000, 2));
        WriteFile("updater/update.rlb", "");
    }

    // Publishes a version in which "data/big" is longer by a letter.
    void PublishNext(const std::string& version) {
        WriteFile("game/data/big", ReadFile("game/data/big") + version.back());
        ASSERT_EQ(PublishSample(version), "");
    }

    ScratchDir scratch;
};

// The contents of every file below "store", by path.
std::map<std::string, std::string> Snapshot() {
    std::map<std::string, std::string> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator("store")) {
        found[entry.path()] = entry.is_directory() ? "(folder)" : ReadFile(entry.path());
    }
    return found;
}

void CopyTree(const std::string& from, const std::string& to) {
    fs::remove_all(to);
    fs::copy(from, to, fs::copy_options::recursive);
}

TEST_F(Publishing, CopiesWhatIsNewLinksWhatStaysAndPatchesWhatIsWorthIt) {
    fs::create_symlink("data/same", "game/linked");
    WriteFile("game/disguised", "before");
    const auto time = fs::last_write_time("game/disguised");
    ASSERT_EQ(PublishSample("1.0", {{"linux64upd", "updater"}, {"common", "game"}}), "");
    WriteFile("game/disguised", "behind");
    fs::last_write_time("game/disguised", time);
    PublishNext("1.1");

    const auto release = OpenSample()->Latest({"common"});
    EXPECT_EQ(release->Files("common").size(), 4u);
    EXPECT_EQ(release->Files("com").size(), 0u);
    for (const ReleaseFile& file : release->Files()) {
        const std::string path = release->FilePath(file);
        EXPECT_TRUE(ReadFile(path) == ReadFile("game" + file.name.substr(6))) << file.name;
        EXPECT_FALSE(fs::is_symlink(path));
        EXPECT_EQ(fs::hard_link_count(path) == 2, file.length == 5000) << file.name;
    }
    EXPECT_EQ(release->Patches().size(), 1u);
    EXPECT_NE(release->FindPatch("common/data/big", "1.0"), nullptr);
    // The files of a store may be published again.
    EXPECT_EQ(PublishSample("1.2", {{"common", "store/releases/000001/files/common"}}), "");
    EXPECT_THAT(CheckStore("store").problems, IsEmpty());
}

TEST_F(Publishing, PatchesFromTheLastReleasesThatHoldTheComponent) {
    for (const char* version : {"1", "2", "3", "4"}) {
        PublishNext(version);
        // Releases of another component do not count.
        ASSERT_EQ(PublishSample(std::string(version) + "u", {{"linux64upd", "updater"}}), "");
    }
    ASSERT_EQ(PublishSample("5"), "");  // the file of version 4 stays
    WriteFile("game/data/big", ReadFile("game/data/big") + "6");
    ASSERT_EQ(PublishSample("6", {{"common", "game"}}, 4), "");
    const auto versions = [store = OpenSample()](const char* version) {
        std::string from;
        for (const auto& patch : store->Find(version)->Patches()) from += patch.fromVersion;
        return from;
    };
    EXPECT_THAT((std::vector{versions("4"), versions("5"), versions("6")}),
                ElementsAre("123", "23", "2345"));
}

TEST_F(Publishing, GivesEveryEntryAnIndexOfItsOwnForEver) {
    std::set<uint32_t> indexes;
    size_t entries = 0;
    for (const char* version : {"1", "2", "3"}) {
        PublishNext(version);
        const auto release = OpenSample()->Find(version);
        for (const ReleaseFile& file : release->Files()) indexes.insert(file.index);
        for (const ReleasePatch& patch : release->Patches()) indexes.insert(patch.index);
        entries += release->Files().size() + release->Patches().size();
        // One that is withdrawn keeps its indexes, its number and its directory's name.
        fs::remove_all("store/releases/000002");
    }
    EXPECT_EQ(indexes.size(), entries);
    EXPECT_EQ(OpenSample()->Find("3")->Sequence(), 3u);
    WriteFile("store/reserved", "halcyrix-reserved 1\nsequence 5\nindex 4294967293\n");
    EXPECT_EQ(PublishSample("5", {{"common", "game"}}, 0), "");
    EXPECT_THAT(PublishSample("6"), HasSubstr("no file index is left"));
}

TEST_F(Publishing, WarnsOfComponentsThatMeetOnThePlayersDisk) {
    for (const char* file : {"game/x", "updater/x", "updater/data"}) WriteFile(file, "");
    RecordingObserver heard;
    ASSERT_EQ(PublishSample("1", {{"common", "game"}, {"linux64upd", "updater"}}, 3, &heard), "");
    EXPECT_THAT(heard.warnings,
                ElementsAre(HasSubstr("common/x and linux64upd/x are the same file"),
                            HasSubstr("linux64upd/data and common/data/big cannot both be"),
                            HasSubstr("linux64upd/data and common/data/same cannot both be")));
}

TEST_F(Publishing, RefusesWhatCannotBePublishedAndChangesNothing) {
    EXPECT_NE(PublishSample("1", {{"common", "none"}}), "");
    EXPECT_FALSE(fs::exists("store"));
    PublishNext("1");
    for (const char* file : {"control/a\nb", "record/halcyrix.lfv", "temporary/halcyrix.vtm/x",
                             "patch/halcyrix.patches/x", "tmp/data/big.tmp", "huge/huge",
                             "folder/x", "fifo/x", "link/x", "good/x", "file"}) {
        WriteFile(file, "");
    }
    fs::resize_file("huge/huge", uint64_t{1} << 32);
    mkfifo("fifo/fifo", 0666);
    fs::create_directory_symlink("../game", "folder/folder");
    fs::create_symlink("nowhere", "link/link");
    const std::string longest(117, 'v');
    const auto before = Snapshot();
    for (const std::string& version : {"1"s, ""s, "1 2"s, "1\x7F"s, longest + "v"}) {
        EXPECT_NE(PublishSample(version), "") << version;
    }
    for (const char* component : {"", "a/b", "..", "a\nb", "linux64"}) {
        const std::vector<ComponentSource> both = {{"linux64", "updater"}, {component, "game"}};
        EXPECT_NE(PublishSample("2", both), "") << component;
    }
    for (const char* tree : {"control", "record", "temporary", "patch", "tmp", "huge", "folder",
                             "fifo", "link", "file", "."}) {
        EXPECT_NE(PublishSample("2", {{"common", tree}, {"linux64", "game"}}), "") << tree;
    }
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(PublishSample(longest, {{"common", "good"}, {"linux64", "game"}}), "");
}

TEST_F(Publishing, RefusesATreeThatChangesWhileItIsRead) {
    const std::function<void()> changes[] = {
        [] { fs::resize_file("game/data/same", 6000); },
        [] { fs::copy_file("game/data/big", "other"), fs::rename("other", "game/data/big"); },
        [] { WriteFile("game/zzz", ""); }, [] { fs::remove("game/data/big"); }};
    PublishNext("1");
    const auto before = Snapshot();
    CopyTree("game", "good");
    for (size_t i = 0; i < std::size(changes); ++i) {
        CopyTree("good", "game");
        RecordingObserver observer;
        observer.onProgress = [&](const std::string& step) {
            if (step == "storing common/data/same") changes[i]();
        };
        EXPECT_NE(PublishSample("2", {{"common", "game"}}, 3, &observer), "") << "change " << i;
        EXPECT_EQ(Snapshot(), before);
    }
}

TEST_F(Publishing, LetsOnePublishAtATime) {
    RecordingObserver observer;
    std::string second;
    observer.onProgress = [&second](auto&) { second = PublishSample("2"); };
    EXPECT_EQ(PublishSample("1", {{"common", "game"}}, 3, &observer), "");
    EXPECT_THAT(second, HasSubstr("somebody else is publishing"));
}

TEST_F(Publishing, ShowsToAnOpenStore) {
    PublishNext("1");
    const auto store = OpenSample();
    const auto first = store->Find("1");
    ASSERT_EQ(PublishSample("2", {{"common", "game"}, {"linux64upd", "updater"}}), "");
    EXPECT_FALSE(store->Latest({"common", "linux64upd"}));
    store->Refresh();
    EXPECT_EQ(store->Latest({"common", "linux64upd"})->Version(), "2");

    // What is damaged is told once and passed over, by whoever publishes too.
    PublishNext("3");
    PublishNext("4");
    fs::resize_file("store/releases/000003/manifest", 10);
    fs::remove("store/releases/000004/files/common/data/same");
    fs::remove_all("store/releases/000002");
    store->Refresh();
    EXPECT_THAT(store->TakeNews(),
                ElementsAre(HasSubstr("000003/manifest"), HasSubstr("data/same: No such file")));
    store->Refresh();
    EXPECT_THAT(store->TakeNews(), IsEmpty());
    EXPECT_EQ(store->Latest({"common"}), first);
    EXPECT_FALSE(store->Find("2"));
    PublishNext("5");
    store->Refresh();
    EXPECT_EQ(store->Latest({"common"})->Version(), "5");
    EXPECT_EQ(store->Damaged().size(), 2u);
}

TEST_F(Publishing, IsCheckedForEveryKindOfDamage) {
    PublishNext("1");
    PublishNext("2");
    const std::string release = "store/releases/000002", other = "store/releases/000009";
    const std::string file = release + "/files/common/data/big";
    const std::string patch = release + "/patches/00000005";
    const std::pair<std::string, std::function<void()>> cases[] = {
        {file + ": has other contents", [&] { WriteFile(file, std::string(20002, 'x')); }},
        {file + ": has 20001 bytes", [&] { fs::resize_file(file, 20001); }},
        {patch + ": is missing", [&] { fs::remove(patch); }},
        {file + ".orig: is not in the manifest", [&] { WriteFile(file + ".orig", ""); }},
        {"the manifest is damaged", [&] { fs::resize_file(release + "/manifest", 50); }},
        {"000009: does not bear", [&] { fs::rename(release, other); }},
        {"000009: has the version of", [&] { CopyTree(release, other); }},
        {"000009: uses file indexes of", [&] { CopyTree(release, other); }},
        {"reserved: damaged", [&] { WriteFile("store/reserved", "halcyrix-reserved 1\n"); }},
        {"No such file", [&] { fs::remove_all("store"); }}};
    CopyTree("store", "good");
    for (const auto& [problem, make] : cases) {
        EXPECT_THAT(CheckStore("store").problems, IsEmpty());
        make();
        EXPECT_THAT(CheckStore("store").problems, testing::Contains(HasSubstr(problem)));
        CopyTree("good", "store");
    }
}

}  // namespace
