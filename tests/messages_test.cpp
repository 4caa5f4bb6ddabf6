#include "update/messages.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::literals;

// A request that the server has read, put as the client puts it.
std::string Encode(const Request& request) {
    if (request.tag == kTagResume) return Encode(request.resume);
    if (request.tag == kTagFull) return EncodeNamed(request.tag, request.name);
    if (request.tag == kTagQueue) return std::string(request.tag);
    return EncodeVersioned(request.tag, request.version, request.name);
}

// Decodes a copy of exactly these bytes, so that a sanitizer sees a read past them, and encodes
// them again.
template <auto decode>
std::optional<std::string> Recode(std::string_view payload) {
    const std::vector<uint8_t> bytes(payload.begin(), payload.end());
    const auto message = decode(bytes.data(), bytes.size());
    if (!message) return std::nullopt;
    return Encode(*message);
}

TEST(Messages, AreTheseBytesAndRefusedWhenCutAnywhere) {
    const struct {
        std::string encoded;
        std::string_view bytes;
        std::optional<std::string> (*recode)(std::string_view) = Recode<DecodeRequest>;
    } cases[] = {
        {EncodeNamed(kTagFull, "common/a"), "FULLcommon/a\0"sv},
        {EncodeVersioned(kTagPatch, "", "x/y"), "PATC\0x/y\0"sv},
        {Encode(ResumeRequest{300, 0xa300d213}), "RSUM\x2c\x01\0\0\x13\xd2\0\xa3"sv},
        {std::string(kTagQueue), "REQD"sv},
        {Encode(FileListEntry{"common/a", 0xa300d213, 0x01020304}),
         "common/a\0\x13\xd2\0\xa3\x04\x03\x02\x01"sv, Recode<DecodeFileListEntry>},
        {Encode(ChecksumReply{0xFFFFFFFE}), "\xfe\xff\xff\xff"sv, Recode<DecodeChecksumReply>},
        {Encode(FullReply{7, 0xb66e2858, 3}), "\x07\0\0\0\x58\x28\x6e\xb6\x03\0\0\0"sv,
         Recode<DecodeFullReply>},
        {Encode(PatchReply{"p/1", 0x80000001, 9, 2, true}),
         "p/1\0\x01\0\0\x80\x09\0\0\0\x02\0\0\0\x01"sv, Recode<DecodePatchReply>},
        {Encode(ResumeReply{true}), "\x01"sv, Recode<DecodeResumeReply>},
        {Encode(QueueStatus{false, 0x0102, 0xFFFF, 50}), "\0\x02\x01\xff\xff\x32\0"sv,
         Recode<DecodeQueueStatus>},
        {Encode(DownloadHeader{5, 1, 2, 8190}), "\x05\0\0\0\x01\0\0\0\x02\0\0\0\xfe\x1f\0\0"sv,
         Recode<DecodeDownloadHeader>},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        EXPECT_EQ(c.encoded, c.bytes);
        EXPECT_EQ(c.recode(c.bytes), c.encoded);
        for (size_t cut = 0; cut < c.bytes.size(); ++cut) {
            EXPECT_FALSE(c.recode(c.bytes.substr(0, cut))) << "cut to " << cut;
        }
        // More than its fields makes a request wrong; in a reply it is passed over.
        const bool isRequest = c.recode == Recode<DecodeRequest>;
        EXPECT_EQ(c.recode(c.encoded + "\x80").has_value(), !isRequest);
    }
    EXPECT_FALSE(Recode<DecodeRequest>("NOPEname\0"sv));
}

}  // namespace
