// Decides what each file of the latest version needs: nothing, a patch, or the whole file.

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

// The longest step of the checks. The window's events wait until it is over.
constexpr std::chrono::milliseconds kLongestStep{20};

// Enough files to keep a disk busy while another file is hashed.
constexpr size_t kMostTogether = 32;

}  // namespace

void UpdateClient::StartChecks(SessionState state) {
    m_nextLook = m_checkList.begin();
    m_lookAhead = true;
    CarryOn(state);
}

// Checks the next files together, which is faster than one by one.
void UpdateClient::LookAhead(std::chrono::steady_clock::time_point until) {
    std::vector<ExpectedFile> files;
    for (auto next = m_nextLook; next != m_checkList.end() && files.size() < kMostTogether;
         ++next) {
        files.push_back({LocalPath(next->name), next->length, next->checksum});
    }
    const size_t looked = CheckTogether(files, until);
    for (size_t i = 0; i < looked; ++i, ++m_nextLook) {
        m_nextLook->good = files[i].good;
        m_nextLook->stamp = files[i].stamp;
    }
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

// Advances to the first wrong file or the end; false when the step's time is up. Nothing is read
// from the server meanwhile, so a server that hangs up during the checks spoils nothing.
bool UpdateClient::FindWrongFile(LocalFileCheck* found) {
    SetFlags(IO_WRITE);
    const auto until = std::chrono::steady_clock::now() + kLongestStep;
    for (; !m_checkList.empty(); m_checkList.pop_front()) {
        if (std::chrono::steady_clock::now() >= until) return false;
        const bool unseen = m_nextLook == m_checkList.begin();
        if (unseen && m_lookAhead) LookAhead(until);
        if (unseen && !m_lookAhead) ++m_nextLook;
        const FileRecord& record = m_checkList.front();
        const std::string path = LocalPath(record.name);
        // The file may have changed since, while a reply was awaited.
        if (record.good && StampOf(path) == record.stamp) continue;
        *found = CheckLocalFile(path, record.length, record.checksum, m_progress);
        // Behind a wrong file there are often more. A look-ahead would open each a second time.
        m_lookAhead = found->result == CHECK_GOOD;
        if (!m_lookAhead) return true;
    }
    return true;
}

// All files have been checked.
int UpdateClient::FinishChecks() {
    if (!m_downloads.empty()) {
        DropPackets();
        return RequestQueue();
    }
    if (m_state == STATE_NEGOTIATE) WriteVersionRecord();
    m_state = STATE_ENDING;
    return SESSION_COMPLETE;
}

// Fetches every wrong file whole, or resumes it when its length differs.
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
    DropPackets();
    RequestFull(record, STATE_VERIFY);
    m_checkList.pop_front();
    return 0;
}

// Asks for the checksum that a wrong file had in the installed version. That decides between a
// patch and the whole file.
int UpdateClient::StepNegotiate() {
    LocalFileCheck found;
    if (!FindWrongFile(&found)) return 0;
    if (m_checkList.empty()) return FinishChecks();
    DropPackets();
    m_pendingRequest = EncodeVersioned(kTagChecksum, m_localVersion, m_checkList.front().name);
    Send(m_pendingRequest);
    WaitForReply(STATE_CSUM_REPLY);
    return 0;
}

int UpdateClient::StepChecksumReply() {
    const auto reply = Decode<ChecksumReply>(m_packet, m_packetLength);
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
    position->second.received = false;
    m_currentDownload = position;
}

int UpdateClient::StepFullReply() {
    const auto reply = Decode<FullReply>(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    AddDownload(reply->index, reply->length,
                DownloadEntry{m_request.name, LocalPath(m_request.name), false});
    CarryOn(m_request.resume ? STATE_SEND_RSUM : s_returnStates.Pop());
    return 0;
}

int UpdateClient::StepPatchReply() {
    const auto reply = Decode<PatchReply>(m_packet, m_packetLength);
    if (!reply) return MalformedReply();
    const std::string& name = reply->downloadName;
    // This name is a local path as it stands, and the patch there is deleted in the end.
    if (!IsPathInside(name))
        return Abort("refusing the name %s from the server!  aborting!\n", name.c_str());
    m_nameBytes += name.size();
    if (m_nameBytes > kMaxNameBytes) {
        return Abort("the server sends names of patches without end!  aborting!\n");
    }
    AddDownload(reply->index, reply->length,
                DownloadEntry{name, LocalPath(m_request.name), reply->isPatch});

    if (reply->isPatch) {
        // A patch left by an earlier session is resumed. Length and checksum are swapped on
        // purpose: any partial patch then counts as different.
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
    const auto reply = Decode<ResumeReply>(m_packet, m_packetLength);
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
