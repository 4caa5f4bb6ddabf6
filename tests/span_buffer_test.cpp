#include "lib/spanbuf/span_buffer.h"

#include <gtest/gtest.h>

#include "lib/stream.h"
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

TEST(SpanBuffer, FailsToWriteWhatItCannot) {
    ScratchDir scratch;
    WriteFile("source", std::string(10000, 'x'));
    const Stream source = OpenForReading("source");
    EXPECT_FALSE(Tiles({{source.get(), 0, 0}}).WriteFile("out", nullptr)) << "an empty file";
    EXPECT_FALSE(Tiles({{source.get(), 9998, 3}}).WriteFile("out", nullptr)) << "ends early";
    EXPECT_FALSE(Tiles({{source.get(), 0, 3}}).WriteFile("/dev/full", nullptr));
}

}  // namespace
