#include <benchmark/benchmark.h>

#include "bench/plain_checksum.h"
#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

constexpr size_t kPiece = 4096;

// Hashes a chain of pieces that are in the cache.
template <typename Function>
void InPieces(benchmark::State& state, Function checksum) {
    const std::string data = SeededBytes(16 * kPiece, 1);
    const auto* bytes = reinterpret_cast<const uint8_t*>(data.data());
    uint32_t value = kFileChecksumStart;
    for (auto _ : state) {
        for (size_t at = 0; at < data.size(); at += kPiece) {
            value = checksum(bytes + at, kPiece, value);
        }
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}

void ChecksumInMemory(benchmark::State& state) {
    InPieces(state, Checksum);
}
BENCHMARK(ChecksumInMemory);

void ChecksumInPlainC(benchmark::State& state) {
    InPieces(state, PlainChecksum);
}
BENCHMARK(ChecksumInPlainC);

// What no rendering of the steps can beat: nine of them, each a subtraction and an exclusive or
// that wait for the step before, and the addition of the next word, for every twelve bytes.
void ChecksumLatencyBound(benchmark::State& state) {
    constexpr int kOperations = 9 * 2 + 1;
    uint32_t value = 1;
    for (auto _ : state) {
        for (size_t at = 0; at < 16 * kPiece; at += 12) {
            for (int i = 0; i < kOperations; ++i) asm volatile("add $3, %0" : "+r"(value));
        }
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(16 * kPiece));
}
BENCHMARK(ChecksumLatencyBound);

void ChecksumOfAFile(benchmark::State& state) {
    const ScratchDir scratch;
    const auto size = static_cast<size_t>(state.range(0));
    WriteFile("file", SeededBytes(size, 2));
    RecordingProgress progress;
    for (auto _ : state) benchmark::DoNotOptimize(FileChecksum("file", &progress));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}
BENCHMARK(ChecksumOfAFile)->Arg(1000)->Arg(100'000)->Arg(100'000'000);

}  // namespace
