#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "lib/patch_buffer.h"
#include "release/checker.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Publishing : public testing::Test {
protected:
    Publishing() {
        WriteFile("game/data/big", Noise(20000, 1));
        WriteFile("game/data/same", Noise(5000, 2));
        WriteFile("game/empty", "");
        WriteFile("updater/update.rlb", Noise(3000, 3));
    }

    // Publishes a version in which "data/big" is longer by a letter.
    void PublishNext(const std::string& version) {
        WriteFile("game/data/big", ReadFile("game/data/big") + version.back());
        ASSERT_EQ(PublishSample(version, {{"common", "game"}}), "");
    }

    ScratchDir scratch;
};

// Returns when the file system gives new changes another time than the file's last change has.
void WaitForAnotherTime(const char* path) {
    struct stat before;
    struct stat probe;
    stat(path, &before);
    do {
        WriteFile("probe", "");
        stat("probe", &probe);
    } while (probe.st_ctim.tv_sec == before.st_ctim.tv_sec &&
             probe.st_ctim.tv_nsec == before.st_ctim.tv_nsec);
}

TEST_F(Publishing, KeepsTheFilesAsTheyWere) {
    fs::create_symlink("data/same", "game/linked");
    ASSERT_EQ(PublishSample("1.0", {{"linux64upd", "updater"}, {"common", "game"}}), "");

    const auto release = OpenSample()->Find("1.0");
    ASSERT_TRUE(release);
    EXPECT_EQ(release->Sequence(), 1u);
    EXPECT_EQ(release->Files().size(), 5u);
    EXPECT_EQ(release->Files("common").size(), 4u);
    EXPECT_EQ(release->Files("com").size(), 0u);
    for (const ReleaseFile& file : release->Files("common")) {
        const std::string source = "game/" + file.name.substr(file.name.find('/') + 1);
        EXPECT_EQ(ReadFile(release->FilePath(file)), ReadFile(source)) << file.name;
        EXPECT_EQ(file.checksum, FileChecksum(source, nullptr)) << file.name;
        EXPECT_EQ(file.length, fs::file_size(source)) << file.name;
    }
    EXPECT_FALSE(fs::is_symlink(release->FilePath(*release->FindFile("common/linked"))));
    EXPECT_EQ(release->FindFile("common/none"), nullptr);
    EXPECT_THAT(CheckStore("store").problems, IsEmpty());
}

TEST_F(Publishing, LinksWhatIsUnchangedAndPatchesWhatIsNot) {
    WriteFile("game/data/disguised", "before");
    const auto time = fs::last_write_time("game/data/disguised");
    ASSERT_EQ(PublishSample("1.0", {{"common", "game"}}), "");
    WriteFile("game/data/big", ReadFile("game/data/big") + "more");
    WriteFile("game/data/new", "new");
    WriteFile("game/data/disguised", "behind");
    fs::last_write_time("game/data/disguised", time);
    ASSERT_EQ(PublishSample("1.1", {{"common", "game"}}), "");

    const auto store = OpenSample();
    const auto before = store->Find("1.0");
    const auto after = store->Latest({"common"});
    EXPECT_EQ(after->Version(), "1.1");
    const auto path = [](const auto& release, const char* name) {
        return release->FilePath(*release->FindFile(name));
    };
    EXPECT_TRUE(fs::equivalent(path(before, "common/data/same"), path(after, "common/data/same")));
    EXPECT_EQ(fs::hard_link_count(path(after, "common/data/same")), 2u);
    EXPECT_EQ(fs::hard_link_count(path(after, "common/data/big")), 1u);
    EXPECT_EQ(ReadFile(path(after, "common/data/disguised")), "behind");

    ASSERT_EQ(after->Patches().size(), 1u);
    const ReleasePatch* patch = after->FindPatch("common/data/big", "1.0");
    ASSERT_NE(patch, nullptr);
    EXPECT_EQ(after->FindPatch("common/data/big", "1.1"), nullptr);
    EXPECT_EQ(after->FindPatch("common/data/same", "1.0"), nullptr);
    PatchBuffer patched;
    ASSERT_TRUE(patched.Load(after->PatchPath(*patch), path(before, "common/data/big")));
    ASSERT_TRUE(patched.WriteFile("patched", nullptr));
    EXPECT_EQ(ReadFile("patched"), ReadFile("game/data/big"));
    EXPECT_EQ(Release::DownloadName(*patch), "halcyrix.patches/0000000a");
}

TEST_F(Publishing, PatchesFromTheLastReleasesThatHoldTheComponent) {
    for (const char* version : {"1", "2", "3", "4"}) {
        PublishNext(version);
        // Releases of another component do not count.
        ASSERT_EQ(PublishSample(std::string(version) + "-updater", {{"linux64upd", "updater"}}),
                  "");
    }
    // The file of version 4 stays in version 5.
    ASSERT_EQ(PublishSample("5", {{"common", "game"}}), "");
    WriteFile("game/data/big", ReadFile("game/data/big") + "6");
    ASSERT_EQ(PublishSample("6", {{"common", "game"}}, 4), "");
    const auto store = OpenSample();
    const auto versions = [&store](const char* version) {
        std::vector<std::string> from;
        for (const ReleasePatch& patch : store->Find(version)->Patches()) {
            from.push_back(patch.fromVersion);
        }
        return from;
    };
    EXPECT_THAT(versions("4"), ElementsAre("1", "2", "3"));
    EXPECT_THAT(versions("5"), ElementsAre("2", "3"));
    EXPECT_THAT(versions("6"), ElementsAre("2", "3", "4", "5"));
    EXPECT_THAT(CheckStore("store").problems, IsEmpty());
}

TEST_F(Publishing, KeepsNoPatchThatIsNotSmallerThanTheFile) {
    ASSERT_EQ(PublishSample("1.0", {{"common", "game"}}), "");
    WriteFile("game/data/big", Noise(20000, 99));
    WriteFile("game/data/same", "");
    WriteFile("game/empty", "x");
    ASSERT_EQ(PublishSample("1.1", {{"common", "game"}}), "");
    EXPECT_EQ(OpenSample()->Find("1.1")->Patches().size(), 0u);
    EXPECT_TRUE(fs::is_empty("store/releases/000002/patches"));
}

TEST_F(Publishing, GivesEveryEntryAnIndexOfItsOwnForEver) {
    std::set<uint32_t> indexes;
    size_t entries = 0;
    const auto take = [&](const char* version) {
        const auto release = OpenSample()->Find(version);
        for (const ReleaseFile& file : release->Files()) indexes.insert(file.index);
        for (const ReleasePatch& patch : release->Patches()) indexes.insert(patch.index);
        entries += release->Files().size() + release->Patches().size();
    };
    for (const char* version : {"1", "2", "3"}) {
        PublishNext(version);
        take(version);
    }
    // A release that was withdrawn keeps its indexes, its number and its directory's name.
    fs::remove_all("store/releases/000003");
    PublishNext("4");
    take("4");
    EXPECT_EQ(OpenSample()->Find("4")->Sequence(), 4u);
    EXPECT_EQ(indexes.size(), entries);

    WriteFile("store/reserved", "halcyrix-reserved 1\nsequence 5\nindex 4294967292\n");
    const auto before = Snapshot("store");
    EXPECT_THAT(PublishSample("5", {{"common", "game"}}), HasSubstr("no file index is left"));
    EXPECT_EQ(Snapshot("store"), before);
    ASSERT_EQ(PublishSample("5", {{"common", "game"}}, 0), "");
    EXPECT_EQ(OpenSample()->Find("5")->Files().back().index, 0xFFFFFFFEu);
    EXPECT_NE(PublishSample("6", {{"common", "game"}}, 0), "");
}

TEST_F(Publishing, PublishesAnEarlierReleaseAgain) {
    PublishNext("1");
    PublishNext("2");
    ASSERT_EQ(PublishSample("1-again", {{"common", "store/releases/000001/files/common"}}), "");
    EXPECT_EQ(OpenSample()->Latest({"common"})->FindFile("common/data/big")->checksum,
              OpenSample()->Find("1")->FindFile("common/data/big")->checksum);
}

TEST_F(Publishing, WarnsOfComponentsThatMeetOnThePlayersDisk) {
    WriteFile("updater/empty", "");
    WriteFile("updater/data", "");
    RecordingObserver observer;
    ASSERT_EQ(PublishSample("1", {{"common", "game"}, {"linux64upd", "updater"}}, 3, &observer),
              "");
    EXPECT_THAT(observer.warnings,
                ElementsAre("common/empty and linux64upd/empty are the same file to a player who "
                            "has both components",
                            "linux64upd/data and common/data/big cannot both be on a player's disk",
                            "linux64upd/data and common/data/same cannot both be on a player's "
                            "disk"));
}

TEST_F(Publishing, RefusesWhatCannotBePublishedAndChangesNothing) {
    PublishNext("1");
    const std::string longest(117, 'v');
    const struct {
        const char* reason;
        std::string version;
        std::vector<ComponentSource> components;
        std::function<void()> make;  // the fault
    } cases[] = {
        {"is published already", "1", {{"common", "game"}}, [] {}},
        {"version \"\" is empty", "", {{"common", "game"}}, [] {}},
        {"has a blank", "1 2", {{"common", "game"}}, [] {}},
        {"has a control character", "1\t2", {{"common", "game"}}, [] {}},
        {"has a control character", "1\x7F", {{"common", "game"}}, [] {}},
        {"is longer than 117 bytes", longest + "v", {{"common", "game"}}, [] {}},
        {"component \"\" is empty", "2", {{"", "game"}}, [] {}},
        {"has a slash", "2", {{"a/b", "game"}}, [] {}},
        {"names a directory", "2", {{"..", "game"}}, [] {}},
        {"has a control character", "2", {{"a\nb", "game"}}, [] {}},
        {"is given twice", "2", {{"common", "game"}, {"common", "updater"}}, [] {}},
        {"No such file", "2", {{"common", "none"}}, [] {}},
        {"Not a directory", "2", {{"common", "game/empty"}}, [] {}},
        {"holds the store itself", "2", {{"common", "."}}, [] {}},
        {"has a control character", "2", {{"common", "bad"}}, [] { WriteFile("bad/a\nb", ""); }},
        {"uses itself", "2", {{"common", "bad"}}, [] { WriteFile("bad/halcyrix.lfv", ""); }},
        {"uses itself", "2", {{"common", "bad"}}, [] { WriteFile("bad/halcyrix.vtm/x", ""); }},
        {"uses itself", "2", {{"common", "bad"}}, [] { WriteFile("bad/halcyrix.patches/x", ""); }},
        {"uses this name itself",
         "2",
         {{"common", "bad"}, {"linux64", "game"}},
         [] { WriteFile("bad/data/big.tmp", ""); }},
        {"has 4 GiB or more",
         "2",
         {{"common", "bad"}},
         [] {
             WriteFile("bad/huge", "");
             fs::resize_file("bad/huge", uint64_t{1} << 32);
         }},
        {"neither a directory",
         "2",
         {{"common", "bad"}},
         [] {
             fs::create_directory("bad");
             mkfifo("bad/fifo", 0666);
         }},
        {"neither a directory",
         "2",
         {{"common", "bad"}},
         [] {
             fs::create_directory("bad");
             fs::create_directory_symlink("../game", "bad/folder");
         }},
        {"No such file",
         "2",
         {{"common", "bad"}},
         [] {
             fs::create_directory("bad");
             fs::create_symlink("nowhere", "bad/link");
         }},
        {"damaged", "2", {{"common", "game"}}, [] { WriteFile("store/reserved", "x"); }},
        {"damaged or cut short",
         "2",
         {{"common", "game"}},
         [] { fs::resize_file("store/releases/000001/manifest", 100); }},
    };
    std::map<std::string, std::string> good;
    for (const char* path : {"store/reserved", "store/releases/000001/manifest"}) {
        good[path] = ReadFile(path);
    }
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.reason) + " for " + c.version + " of " +
                     c.components[0].component + "=" + c.components[0].directory);
        c.make();
        const auto before = Snapshot("store");
        EXPECT_THAT(PublishSample(c.version, c.components), HasSubstr(c.reason));
        EXPECT_EQ(Snapshot("store"), before);
        fs::remove_all("bad");
        for (const auto& [path, contents] : good) WriteFile(path, contents);
    }
    EXPECT_EQ(PublishSample(longest, {{"common", "game"}}), "");
}

TEST_F(Publishing, MakesNoStoreForWhatItRefuses) {
    EXPECT_NE(PublishSample("1", {{"common", "none"}}), "");
    EXPECT_FALSE(fs::exists("store"));
}

TEST_F(Publishing, RefusesATreeThatChangesWhileItIsRead) {
    PublishNext("1");
    const struct {
        const char* change;
        std::function<void()> make;
    } cases[] = {
        {"grown before it is read", [] { fs::resize_file("game/data/same", 6000); }},
        {"grown after it was read", [] { fs::resize_file("game/data/big", 30000); }},
        {"rewritten with its old time",
         [] {
             WaitForAnotherTime("game/data/same");
             const auto time = fs::last_write_time("game/data/same");
             WriteFile("game/data/same", Noise(5000, 77));
             fs::last_write_time("game/data/same", time);
         }},
        {"replaced",
         [] {
             fs::copy_file("game/data/big", "other");
             fs::rename("other", "game/data/big");
         }},
        {"added", [] { WriteFile("game/zzz", ""); }},
        {"removed", [] { fs::remove("game/data/big"); }},
        {"removed before it is read", [] { fs::remove("game/data/same"); }},
    };
    const auto before = Snapshot("store");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.change);
        fs::remove_all("game");
        WriteFile("game/data/big", Noise(20000, 1));
        WriteFile("game/data/same", Noise(5000, 2));
        RecordingObserver observer;
        observer.onProgress = [&c](const std::string& step) {
            if (step == "storing common/data/same") c.make();
        };
        EXPECT_NE(PublishSample("2", {{"common", "game"}}, 3, &observer), "");
        EXPECT_EQ(Snapshot("store"), before);
    }
}

TEST_F(Publishing, LetsOnePublishAtATime) {
    RecordingObserver observer;
    std::string second;
    observer.onProgress = [&second](const std::string&) {
        second = PublishSample("2", {{"common", "game"}});
    };
    EXPECT_EQ(PublishSample("1", {{"common", "game"}}, 3, &observer), "");
    EXPECT_THAT(second, HasSubstr("somebody else is publishing"));
}

TEST_F(Publishing, ShowsToAnOpenStore) {
    PublishNext("1");
    const auto store = OpenSample();
    EXPECT_FALSE(store->Latest({"common", "linux64upd"}));
    ASSERT_EQ(PublishSample("2", {{"common", "game"}, {"linux64upd", "updater"}}), "");
    EXPECT_FALSE(store->Find("2"));
    std::string error;
    ASSERT_TRUE(store->Refresh(&error)) << error;
    EXPECT_EQ(store->Latest({"common", "linux64upd"})->Version(), "2");

    // What cannot be read is told, and what can be is there all the same.
    const auto first = store->Find("1");
    PublishNext("3");
    PublishNext("4");
    fs::resize_file("store/releases/000003/manifest", 10);
    fs::remove_all("store/releases/000002");
    EXPECT_FALSE(store->Refresh(&error));
    EXPECT_THAT(error, HasSubstr("000003/manifest"));
    EXPECT_EQ(store->Latest({"common"})->Version(), "4");
    EXPECT_EQ(store->Find("1"), first);
    EXPECT_FALSE(store->Find("2"));
    EXPECT_EQ(OpenSample(), nullptr);
}

TEST_F(Publishing, IsCheckedForEveryKindOfDamage) {
    PublishNext("1");
    PublishNext("2");
    const std::string file = "store/releases/000002/files/common/data/big";
    const std::string patch = "store/releases/000002/patches/00000007";
    const struct {
        std::string problem;
        std::function<void()> make;
    } cases[] = {
        {file + ": has other contents", [&] { WriteFile(file, Noise(fs::file_size(file), 5)); }},
        {file + ": has 20001 bytes", [&] { fs::resize_file(file, 20001); }},
        {file + ": is missing", [&] { fs::remove(file); }},
        {patch + ": has other contents", [&] { WriteFile(patch, Noise(fs::file_size(patch), 5)); }},
        {patch + ": is missing", [&] { fs::remove(patch); }},
        {file + ".orig: is not in the manifest", [&] { WriteFile(file + ".orig", ""); }},
        {"patches/extra: is not in the manifest",
         [&] { WriteFile("store/releases/000002/patches/extra", ""); }},
        {"000002/manifest: the manifest is damaged",
         [&] { fs::resize_file("store/releases/000002/manifest", 50); }},
        {"000002/manifest: No such file", [&] { fs::remove("store/releases/000002/manifest"); }},
        {"000009: does not bear",
         [&] { fs::rename("store/releases/000002", "store/releases/000009"); }},
        {"000009: has the version of",
         [&] {
             fs::copy("store/releases/000002", "store/releases/000009",
                      fs::copy_options::recursive);
         }},
        {"000009: uses file indexes of",
         [&] {
             fs::copy("store/releases/000002", "store/releases/000009",
                      fs::copy_options::recursive);
         }},
        {"reserved: damaged", [&] { WriteFile("store/reserved", "halcyrix-reserved 1\n"); }},
    };
    fs::copy("store", "good", fs::copy_options::recursive);
    EXPECT_THAT(CheckStore("store").problems, IsEmpty());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.problem);
        c.make();
        EXPECT_THAT(CheckStore("store").problems, testing::Contains(HasSubstr(c.problem)));
        fs::remove_all("store");
        fs::copy("good", "store", fs::copy_options::recursive);
    }
    EXPECT_FALSE(CheckStore("nowhere").problems.empty());
}

}  // namespace
