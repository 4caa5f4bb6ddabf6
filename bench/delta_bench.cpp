#include <benchmark/benchmark.h>

#include <random>

#include "delta/delta.h"
#include "tests/support/scratch_dir.h"

namespace {

// Eight megabytes with bytes changed in `edits` places.
void MakeDelta(benchmark::State& state) {
    const ScratchDir scratch;
    std::string data = SeededBytes(8'000'000, 4);
    WriteFile("old", data);
    std::mt19937 random(5);
    for (int64_t i = 0; i < state.range(0); ++i) data[random() % data.size()] ^= 0x55;
    WriteFile("new", data);
    std::string reason;
    for (auto _ : state) {
        if (MakePatch("old", "new", "patch", kNoSizeLimit, &reason) != DeltaResult::MADE) {
            state.SkipWithError(reason.c_str());
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}
BENCHMARK(MakeDelta)->ArgName("edits")->Arg(10)->Arg(10'000)->Unit(benchmark::kMillisecond);

}  // namespace
