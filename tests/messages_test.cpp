#include "update/messages.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

using namespace std::literals;

// Gives the decoder a copy of exactly these bytes, so that a sanitizer sees a read past them.
template <typename Message>
std::optional<Message> DecodeExactly(std::optional<Message> (*decode)(const uint8_t*, size_t),
                                     std::string_view payload) {
    const std::vector<uint8_t> bytes(payload.begin(), payload.end());
    return decode(bytes.data(), bytes.size());
}

using Recode = std::function<std::optional<std::string>(std::string_view)>;

// Decodes and encodes again.
template <typename Message>
Recode Through(std::optional<Message> (*decode)(const uint8_t*, size_t)) {
    return [decode](std::string_view payload) -> std::optional<std::string> {
        const std::optional<Message> message = DecodeExactly(decode, payload);
        if (!message) return std::nullopt;
        return Encode(*message);
    };
}

TEST(Requests, AreTheseBytes) {
    const struct {
        std::string encoded;
        std::string_view expected;
    } cases[] = {
        {std::string(kGreeting), "PVERA"sv},
        {EncodeNamed(kTagComponent, "linux64"), "ARCHlinux64\0"sv},
        {std::string(kTagMotd), "MOTD"sv},
        {std::string(kTagVersion), "GETV"sv},
        {EncodeVersioned(kTagChecksum, "1.4", "common/a b"), "CSUM1.4\0common/a b\0"sv},
        {EncodeNamed(kTagFull, "common/a"), "FULLcommon/a\0"sv},
        {EncodeVersioned(kTagPatch, "", "x/y"), "PATC\0x/y\0"sv},
        {Encode(ResumeRequest{300, 0xa300d213}), "RSUM\x2c\x01\0\0\x13\xd2\0\xa3"sv},
        {std::string(kTagQueue), "REQD"sv},
        {std::string(kTagDownload), "DOWN"sv},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.encoded, c.expected);
        const auto request = DecodeExactly(DecodeRequest, c.encoded);
        ASSERT_TRUE(request) << c.encoded;
        EXPECT_EQ(c.encoded.substr(0, request->tag.size()), request->tag);
        EXPECT_FALSE(DecodeExactly(DecodeRequest, c.encoded + "x")) << c.encoded;
        for (size_t cut = 0; cut < c.encoded.size(); ++cut) {
            EXPECT_FALSE(DecodeExactly(DecodeRequest, c.encoded.substr(0, cut)))
                << c.encoded << " cut to " << cut;
        }
    }
}

TEST(Requests, GiveTheServerTheirFields) {
    const auto patch = DecodeExactly(DecodeRequest, EncodeVersioned(kTagPatch, "1.4", "x/y"));
    EXPECT_EQ(patch->version, "1.4");
    EXPECT_EQ(patch->name, "x/y");
    const auto resume = DecodeExactly(DecodeRequest, Encode(ResumeRequest{5000, 0xFFFFFFFE}));
    EXPECT_EQ(resume->resume.offset, 5000u);
    EXPECT_EQ(resume->resume.tailChecksum, 0xFFFFFFFEu);
    EXPECT_FALSE(DecodeExactly(DecodeRequest, "NOPEname\0"sv));
}

TEST(Replies, AreTheseBytesAndRefusedWhenCutAnywhere) {
    const struct {
        std::string encoded;
        std::string_view expected;
        Recode recode;
    } cases[] = {
        {Encode(FileListEntry{"common/a", 0xa300d213, 0x01020304}),
         "common/a\0\x13\xd2\0\xa3\x04\x03\x02\x01"sv, Through(DecodeFileListEntry)},
        {Encode(ChecksumReply{0xFFFFFFFE}), "\xfe\xff\xff\xff"sv, Through(DecodeChecksumReply)},
        {Encode(FullReply{7, 0xb66e2858, 3}), "\x07\0\0\0\x58\x28\x6e\xb6\x03\0\0\0"sv,
         Through(DecodeFullReply)},
        {Encode(PatchReply{"p/1", 0x80000001, 9, 2, true}),
         "p/1\0\x01\0\0\x80\x09\0\0\0\x02\0\0\0\x01"sv, Through(DecodePatchReply)},
        {Encode(PatchReply{"", 1, 9, 2, false}), "\0\x01\0\0\0\x09\0\0\0\x02\0\0\0\0"sv,
         Through(DecodePatchReply)},
        {Encode(ResumeReply{true}), "\x01"sv, Through(DecodeResumeReply)},
        {Encode(QueueStatus{false, 0x0102, 0xFFFF, 50}), "\0\x02\x01\xff\xff\x32\0"sv,
         Through(DecodeQueueStatus)},
        {Encode(DownloadHeader{5, 1, 2, 8190}), "\x05\0\0\0\x01\0\0\0\x02\0\0\0\xfe\x1f\0\0"sv,
         Through(DecodeDownloadHeader)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.expected));
        EXPECT_EQ(c.encoded, c.expected);
        EXPECT_EQ(c.recode(c.encoded), c.encoded);
        EXPECT_EQ(c.recode(c.encoded + "\x80"), c.encoded);
        for (size_t cut = 0; cut < c.encoded.size(); ++cut) {
            EXPECT_FALSE(c.recode(c.encoded.substr(0, cut))) << "cut to " << cut;
        }
    }
}

}  // namespace
