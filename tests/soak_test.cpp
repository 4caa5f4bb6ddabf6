// Many starts one after the other in one process, against the maker's tool as it serves: nothing
// grows.
//
// HALCYRIX_STARTS is the number of starts, of two sessions each (500).

#include "tests/support/environment.h"
#include "tests/support/headless_updater.h"
#include "tests/support/memory_use.h"
#include "tests/support/served_game.h"

namespace {

namespace fs = std::filesystem;

class Soak : public StoreTest {};

TEST_F(Soak, OfManySessionsMakesNothingGrow) {
    const int starts = NumberFromEnvironment("HALCYRIX_STARTS", 500);
    const Tree first = {{"linux64upd/update.rlb", SeededBytes(9000, 1)},
                        {"linux64/halcyrix", SeededBytes(60000, 2)},
                        {"common/data", SeededBytes(20000, 3)}};
    Tree second = first;
    second["common/data"].insert(7000, "a change");
    Publish("1.0", first);
    ServingProgram server(StorePath());
    fs::create_directory("home");
    fs::current_path("home");
    const auto start = [] {
        RecordingLog log;
        HeadlessUpdater updater;
        const auto results = updater.Run();
        ASSERT_TRUE(results.own >= 0 && results.game >= 0) << log.Text();
    };
    start();
    Publish("1.1", second);

    struct Use {
        long memory, descriptors;
    };
    const auto use = [&server] {
        const long descriptors = server.SettledDescriptors();
        return std::array{Use{ResidentKilobytes(getpid()), OpenDescriptors(getpid())},
                          Use{ResidentKilobytes(server.Pid()), descriptors}};
    };
    std::array<Use, 2> before{};
    const int settled = std::min(20, starts);
    for (int number = 1; number <= starts && !HasFailure(); ++number) {
        // By turns a whole download, a patch, a repair that resumes, and nothing to do.
        switch (number % 4) {
            case 0: fs::remove_all("../home"), fs::create_directory("../home"); break;
            case 1: WriteFile("halcyrix.lfv", "9fcdf44f 1.0\n"); break;
            case 2: fs::resize_file("halcyrix", 30000); break;
        }
        if (number % 4 == 0) fs::current_path(scratch.Path() / "home");
        if (number % 4 == 1) WriteFile("data", first.at("common/data"));
        start();
        ExpectTree(second);
        if (number == settled) before = use();
    }
    const std::array<Use, 2> after = use();
    for (const int i : {0, 1}) {
        const long grown = after[i].memory - before[i].memory;
        const long more = after[i].descriptors - before[i].descriptors;
        printf("%s: %ld KiB and %ld descriptors more after %d starts than after %d\n",
               i == 0 ? "updater" : "server", grown, more, starts, settled);
        EXPECT_EQ(more, 0);
        if (kMeasuresMemory) {
            EXPECT_LT(grown, 512);
        }
    }
}

}  // namespace
