// What each file of the latest version needs: nothing, a patch, or to be fetched whole.

#include <vector>

#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "lib/local_file_check.h"
#include "lib/server_name.h"
#include "log/gamelog.h"
#include "update/client_limits.h"
#include "update/messages.h"
#include "update/update_client.h"

namespace {

// Files are checked for so long before the dispatcher gets its turn: the window's events are
// waiting there.
constexpr std::chrono::milliseconds kLongestStep{20};

// Enough to keep a disk busy while another file is hashed.
constexpr size_t kMostTogether = 32;

}  // namespace

void UpdateClient::StartChecks(SessionState state) {
    m_nextLook = m_checkList.begin();
    CarryOn(state);
}

// Finds out which of the next files are right. That stays true until their turn comes: nothing is
// written before the checks are done.
void UpdateClient::LookAhead(std::chrono::steady_clock::time_point until) {
    std::vector<ExpectedFile> files;
    for (auto next = m_nextLook; next != m_checkList.end() && files.size() < kMostTogether;
         ++next) {
        files.push_back({LocalPath(next->name), next->length, next->checksum});
    }
    const size_t looked = CheckTogether(files, until);
    for (size_t i = 0; i < looked; ++i) (m_nextLook++)->good = files[i].good;
}

void UpdateClient::RequestFull(const FileRecord& record, SessionState returnState) {
    m_pendingRequest = EncodeNamed(kTagFull, record.name);
    SendRequest(record, returnState, STATE_FULL_REPLY);
}

void UpdateClient::RequestPatch(const FileRecord& record, SessionState returnState) {
    m_pendingRequest = EncodeVersioned(kTagPatch, m_localVersion, record.name);
    SendRequest(record, returnState, STATE_PATC_REPLY);
}

void UpdateClient::SendRequest(const FileRecord& record, SessionState returnState,
                               SessionState replyState) {
    m_request = record;
    s_returnStates.Push(returnState);
    Send(m_pendingRequest);
    WaitForReply(replyState);
}

// Checks files until the first one of the list is not right, as *found says, or none is left. False
// when that takes longer than one step may: the next writable event carries it on.
//
// Meanwhile nothing is read from the server. Whatever it sends, and even that it hangs up, shows
// when it is needed for something.
bool UpdateClient::FindWrongFile(LocalFileCheck* found) {
    SetFlags(IO_WRITE);
    const auto until = std::chrono::steady_clock::now() + kLongestStep;
    for (; !m_checkList.empty(); m_checkList.pop_front()) {
        if (std::chrono::steady_clock::now() >= until) return false;
        if (m_nextLook == m_checkList.begin()) LookAhead(until);
        const FileRecord& record = m_checkList.front();
        if (record.good) continue;
        *found = CheckLocalFile(LocalPath(record.name), record.length, record.checksum, m_progress);
        if (found->result != CHECK_GOOD) return true;
    }
    return true;
}

// Every file is right, or announced as a download.
int UpdateClient::FinishChecks() {
    if (!m_downloads.empty()) return RequestQueue();
    if (m_state == STATE_NEGOTIATE) WriteVersionRecord();
    m_state = STATE_ENDING;
    return SESSION_COMPLETE;
}

// Without patches: every file that is not right is fetched whole, or from where it was cut off.
int UpdateClient::StepVerify() {
    LocalFileCheck found;
    if (!FindWrongFile(&found)) return 0;
    if (m_checkList.empty()) return FinishChecks();
    FileRecord& record = m_checkList.front();
    if (found.result == CHECK_DIFFERS) {
        record.currentLength = found.length;
        record.tailChecksum = found.tailChecksum;
        record.resume = true;
    }
    RequestFull(record, STATE_VERIFY);
    m_checkList.pop_front();
    return 0;
}

// With patches: of every file that is not right the checksum in the installed version decides.
int UpdateClient::StepNegotiate() {
    LocalFileCheck found;
    if (!FindWrongFile(&found)) return 0;
    if (m_checkList.empty()) return FinishChecks();
    m_pendingRequest = EncodeVersioned(kTagChecksum, m_localVersion, m_checkList.front().name);
    Send(m_pendingRequest);
    WaitForReply(STATE_CSUM_REPLY);
    return 0;
}

int UpdateClient::StepChecksumReply() {
    const auto reply = DecodeChecksumReply(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    const FileRecord& record = m_checkList.front();
    const uint32_t local = FileChecksum(LocalPath(record.name), m_progress);
    if (reply->checksum != kNoChecksum && reply->checksum == local) {
        RequestPatch(record, STATE_NEGOTIATE);
    } else if (local == record.checksum) {
        CarryOn(STATE_NEGOTIATE);
    } else {
        RequestFull(record, STATE_NEGOTIATE);
    }
    m_checkList.pop_front();
    return 0;
}

void UpdateClient::AddDownload(uint32_t index, uint32_t length, DownloadEntry entry) {
    m_bytesTotal += length;
    const auto key = static_cast<int32_t>(index);
    const auto [position, inserted] = m_downloads.try_emplace(key, std::move(entry));
    if (!inserted) gamelog->Printf("couldn't insert file index %d?\n", key);
    m_currentDownload = position;
}

int UpdateClient::StepFullReply() {
    const auto reply = DecodeFullReply(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    AddDownload(reply->index, reply->length,
                DownloadEntry{m_request.name, LocalPath(m_request.name), false});
    CarryOn(m_request.resume ? STATE_SEND_RSUM : s_returnStates.Pop());
    return 0;
}

int UpdateClient::StepPatchReply() {
    const auto reply = DecodePatchReply(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    const std::string& name = reply->downloadName;
    // Used as given, without taking off a component; and the patch that it names is deleted.
    if (!IsPathInside(name))
        return Abort("refusing the name %s from the server!  aborting!\n", name.c_str());
    m_nameBytes += name.size();
    if (m_nameBytes > kMaxNameBytes) {
        return Abort("the server sends names of patches without end!  aborting!\n");
    }
    AddDownload(reply->index, reply->length,
                DownloadEntry{name, LocalPath(m_request.name), reply->isPatch});

    if (reply->isPatch) {
        // A patch left by an earlier session is resumed. Length and checksum stand in each other's
        // place, so that any file that is there counts as one of another length.
        FileRecord patch;
        patch.name = "patch/" + name;
        patch.checksum = reply->length;
        patch.length = reply->checksum;
        uint32_t size = 0;
        uint32_t tailChecksum = 0;
        const int found = CheckFile(patch, &size, &tailChecksum);
        if (found == CHECK_DIFFERS || size == reply->length) {
            m_request = std::move(patch);
            m_request.currentLength = size;
            m_request.tailChecksum = tailChecksum;
            CarryOn(STATE_SEND_RSUM);
            return 0;
        }
    }
    CarryOn(s_returnStates.Pop());
    return 0;
}

int UpdateClient::StepSendResume() {
    Send(Encode(
        ResumeRequest{static_cast<uint32_t>(m_request.currentLength), m_request.tailChecksum}));
    WaitForReply(STATE_RSUM_REPLY);
    return 0;
}

int UpdateClient::StepResumeReply() {
    const auto reply = DecodeResumeReply(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    if (reply->accepted) {
        gamelog->Printf("resuming download of %s\n", m_request.name.c_str());
        m_bytesDone += static_cast<int64_t>(m_request.currentLength);
    } else {
        gamelog->Printf("redownloading %s\n", m_request.name.c_str());
    }
    CarryOn(s_returnStates.Pop());
    return 0;
}
