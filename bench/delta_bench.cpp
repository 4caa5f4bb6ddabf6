#include <benchmark/benchmark.h>

#include <random>

#include "bench/temporary.h"
#include "release/delta.h"

namespace {

// Eight megabytes with bytes changed in `edits` places.
void MakeDelta(benchmark::State& state) {
    const Temporary temporary;
    std::string data = Noise(8'000'000, 4);
    const std::string old = temporary.File("old", data);
    std::mt19937 random(5);
    for (int64_t i = 0; i < state.range(0); ++i) data[random() % data.size()] ^= 0x55;
    const std::string contents = temporary.File("new", data);
    std::string reason;
    for (auto _ : state) {
        if (MakePatch(old, contents, temporary.Path("patch"), kNoSizeLimit, &reason) !=
            DeltaResult::MADE) {
            state.SkipWithError(reason.c_str());
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}
BENCHMARK(MakeDelta)->ArgName("edits")->Arg(10)->Arg(10'000)->Unit(benchmark::kMillisecond);

}  // namespace
