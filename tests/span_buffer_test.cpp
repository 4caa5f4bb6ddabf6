#include "lib/spanbuf/span_buffer.h"

#include <gtest/gtest.h>

#include "lib/stream.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

SpanBuffer Tiles(std::initializer_list<Span> tiles) {
    SpanBuffer buffer;
    for (const Span& tile : tiles) buffer.spans.emplace(buffer.Size(), tile);
    return buffer;
}

TEST(SpanBuffer, GrowsByItselfAndRefusesStretchesThatItDoesNotHold) {
    SpanBuffer buffer = Tiles({{stdin, 0, 100}, {stdout, 1000, 50}});
    EXPECT_EQ(buffer.Append(buffer), 300u);
    EXPECT_EQ(buffer.SubSpan(149, 2).spans.size(), 2u);
    const std::pair<uint64_t, uint64_t> ranges[] = {
        {500, 0}, {0, 301}, {299, 2}, {1, UINT64_MAX}, {UINT64_MAX, 2}};
    for (const auto& [offset, length] : ranges) {
        EXPECT_TRUE(buffer.SubSpan(offset, length).spans.empty()) << offset << ", " << length;
    }
}

TEST(SpanBuffer, WritesItsSpansPieceByPieceFromAnyStream) {
    ScratchDir scratch;
    std::string contents[] = {SeededBytes(300000, 1), SeededBytes(50000, 2)};
    WriteFile("first", contents[0]);
    const Stream files[] = {OpenForReading("first"),
                            Stream(fmemopen(contents[1].data(), contents[1].size(), "rb"))};
    const struct {
        int file;
        uint64_t offset, length;
    } stretches[] = {{0, 1, 200001}, {1, 10, 20},       {1, 40, 5000}, {0, 100, 30},
                     {0, 90, 9000},  {0, 65536, 65536}, {1, 0, 50000}, {1, 49999, 1}};
    SpanBuffer buffer;
    std::string expected;
    std::vector<std::pair<int32_t, int32_t>> pieces;
    for (const auto& [file, offset, length] : stretches) {
        buffer.spans.emplace(buffer.Size(), Span{files[file].get(), offset, length});
        for (uint64_t end = 0; end < length;) {
            end = std::min<uint64_t>(end + 4096, length);
            pieces.emplace_back(expected.size() + end, 0);
        }
        expected += contents[file].substr(offset, length);
    }
    for (auto& [done, total] : pieces) total = static_cast<int32_t>(expected.size());

    RecordingProgress progress;
    EXPECT_TRUE(buffer.WriteFile("out", &progress));
    EXPECT_TRUE(ReadFile("out") == expected);
    EXPECT_EQ(progress.progress, pieces);
}

TEST(SpanBuffer, FailsToWriteWhatItCannot) {
    ScratchDir scratch;
    WriteFile("source", std::string(10000, 'x'));
    const Stream source = OpenForReading("source");
    EXPECT_FALSE(Tiles({{source.get(), 0, 0}}).WriteFile("out", nullptr)) << "an empty file";
    EXPECT_FALSE(Tiles({{source.get(), 9998, 3}}).WriteFile("out", nullptr)) << "ends early";
    EXPECT_FALSE(Tiles({{source.get(), 0, 3}}).WriteFile("/dev/full", nullptr));
}

}  // namespace
