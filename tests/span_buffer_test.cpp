#include "lib/spanbuf/span_buffer.h"

#include <gmock/gmock.h>

#include "lib/stream.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

// In the global namespace, where the comparisons of maps find it.
bool operator==(const Span& a, const Span& b) {
    return a.file == b.file && a.offset == b.offset && a.length == b.length;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

SpanBuffer Tiles(std::initializer_list<Span> tiles) {
    SpanBuffer buffer;
    for (const Span& tile : tiles) buffer.spans.emplace(buffer.Size(), tile);
    return buffer;
}

TEST(SpanBuffer, TilesWhatIsAppended) {
    SpanBuffer buffer;
    EXPECT_EQ(buffer.Append(SpanBuffer()), 0u);
    EXPECT_EQ(buffer.Append(Tiles({{stdin, 7, 100}})), 100u);
    EXPECT_EQ(buffer.Append(Tiles({{stdout, 0, 10}, {stdin, 50, 5}})), 115u);
    EXPECT_THAT(buffer.spans,
                ElementsAre(Pair(0, Span{stdin, 7, 100}), Pair(100, Span{stdout, 0, 10}),
                            Pair(110, Span{stdin, 50, 5})));
    EXPECT_EQ(buffer.Append(buffer), 230u);
    EXPECT_THAT(buffer.SubSpan(115, 115).spans, buffer.SubSpan(0, 115).spans);
}

TEST(SpanBuffer, CutsStretchesThatItHoldsAndRefusesOthers) {
    const SpanBuffer buffer = Tiles({{stdin, 0, 100}, {stdout, 1000, 50}});
    EXPECT_THAT(buffer.SubSpan(90, 20).spans,
                ElementsAre(Pair(0, Span{stdin, 90, 10}), Pair(10, Span{stdout, 1000, 10})));
    EXPECT_THAT(buffer.SubSpan(100, 50).spans, ElementsAre(Pair(0, Span{stdout, 1000, 50})));
    EXPECT_EQ(buffer.SubSpan(0, 150).spans, buffer.spans);
    const std::pair<uint64_t, uint64_t> ranges[] = {
        {0, 0}, {500, 0}, {0, 151}, {149, 2}, {150, 1}, {1, UINT64_MAX}, {UINT64_MAX, 2}};
    for (const auto& [offset, length] : ranges) {
        EXPECT_THAT(buffer.SubSpan(offset, length).spans, IsEmpty()) << offset << ", " << length;
    }
    EXPECT_DEATH(SpanBuffer().SubSpan(0, 1), "!spans\\.empty\\(\\)");
}

TEST(SpanBuffer, ReportsEveryPieceThatItWrites) {
    ScratchDir scratch;
    WriteFile("source", std::string(10000, 'x'));
    const Stream source = OpenForReading("source");
    RecordingProgress progress;
    EXPECT_TRUE(
        Tiles({{source.get(), 0, 10000}, {source.get(), 5, 20}}).WriteFile("out", &progress));
    EXPECT_THAT(progress.progress, ElementsAre(Pair(4096, 10020), Pair(8192, 10020),
                                               Pair(10000, 10020), Pair(10020, 10020)));
}

TEST(SpanBuffer, FailsToWriteWhatItCannot) {
    ScratchDir scratch;
    WriteFile("source", "abc");
    const Stream source = OpenForReading("source");
    EXPECT_TRUE(SpanBuffer().WriteFile("out", nullptr));
    EXPECT_FALSE(Tiles({{source.get(), 0, 0}}).WriteFile("out", nullptr)) << "an empty file";
    EXPECT_FALSE(Tiles({{source.get(), 1, 3}}).WriteFile("out", nullptr))
        << "the stream ends early";
    EXPECT_EQ(ReadFile("out"), "bc");
    const Stream full = OpenForWriting("/dev/full");
    EXPECT_FALSE(Tiles({{source.get(), 0, 3}}).Write(full.get(), nullptr));
    EXPECT_FALSE(Tiles({{source.get(), 0, 3}}).WriteFile("missing/out", nullptr));
}

}  // namespace
