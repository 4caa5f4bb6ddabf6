#include <benchmark/benchmark.h>

#include <random>

#include "fuzz/patch_model.h"
#include "lib/patch_buffer.h"
#include "lib/stream.h"
#include "tests/support/scratch_dir.h"

namespace {

// A patch of copies of 100 bytes; every fourth command is a literal of 20. The copies go through
// the old contents in steps, or stand anywhere in them.
std::string ManyCommands(size_t commands, size_t oldSize, bool inOrder) {
    std::mt19937 random(3);
    std::string patch;
    for (size_t i = 0; i < commands; ++i) {
        const size_t at = inOrder ? i * (oldSize - 100) / commands : random() % (oldSize - 100);
        patch += i % 4 == 3 ? Literal(std::string(20, 'x')) : Copy(static_cast<uint32_t>(at), 100);
    }
    return patch + "R";
}

void LoadPatch(benchmark::State& state) {
    const ScratchDir scratch;
    const auto commands = static_cast<size_t>(state.range(0));
    WriteFile("old", std::string(size_t{64} << 20, 'o'));
    WriteFile("patch", ManyCommands(commands, size_t{64} << 20, true));
    for (auto _ : state) {
        PatchBuffer patched;
        if (!patched.Load("patch", "old")) state.SkipWithError("the patch does not load");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(LoadPatch)->Arg(10)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void WriteManySpans(benchmark::State& state) {
    const ScratchDir scratch;
    WriteFile("old", std::string(size_t{64} << 20, 'o'));
    WriteFile("patch", ManyCommands(1'000'000, size_t{64} << 20, state.range(0) != 0));
    PatchBuffer patched;
    if (!patched.Load("patch", "old")) state.SkipWithError("the patch does not load");
    for (auto _ : state) {
        if (!patched.WriteFile("new", nullptr)) state.SkipWithError("not written");
    }
    state.SetItemsProcessed(state.iterations() * 1'000'000);
}
BENCHMARK(WriteManySpans)->ArgName("in_order")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void WriteOneSpan(benchmark::State& state) {
    const ScratchDir scratch;
    constexpr size_t kSize = size_t{256} << 20;
    WriteFile("old", std::string(kSize, 'o'));
    const Stream file = OpenForReading("old");
    SpanBuffer buffer;
    buffer.spans.emplace(0, Span{file.get(), 0, kSize});
    for (auto _ : state) {
        if (!buffer.WriteFile("new", nullptr)) state.SkipWithError("not written");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
}
BENCHMARK(WriteOneSpan)->Unit(benchmark::kMillisecond);

}  // namespace
