// The download queue, the download stream, and the end of a session that downloaded something.

#include <unistd.h>

#include "lib/file_helpers.h"
#include "log/gamelog.h"
#include "update/messages.h"
#include "update/update_client.h"

namespace {

// Packets are written together: a call for each takes too long.
constexpr size_t kFileBuffer = 64 * 1024;

}  // namespace

void UpdateClient::ShowProgress() {
    m_progress->ShowProgress(m_bytesDone, m_bytesTotal);
}

void UpdateClient::RequestQueue() {
    SendText(kTagQueue);
    SetFlags(IO_READ);
    ShowProgress();
    m_state = STATE_QUEUE;
}

int UpdateClient::StepQueue() {
    const auto status = DecodeQueueStatus(m_packet, m_packetLength);
    if (!status) return MalformedReply();
    if (status->ready) {
        m_progress->SetStatus("Downloading updates...");
        CarryOn(STATE_SEND_DOWN);
        return 0;
    }
    const int place = status->position + 1;
    const int wait = status->rate == 0 ? 0 : place * 100 / status->rate;  // seconds
    char text[128];
    snprintf(text, sizeof text, "Waiting; #%d/%d in queue, approx. %02d:%02d:%02d remaining", place,
             status->queueLength, wait / 3600 % 60, wait / 60 % 60, wait % 60);
    m_progress->SetStatus(text);
    return 0;
}

int UpdateClient::StepSendDownload() {
    SendText(kTagDownload);
    WaitForReply(STATE_DOWN_HEADER);
    return 0;
}

int UpdateClient::StepDownloadHeader() {
    const auto header = DecodeDownloadHeader(m_packet, m_packetLength);
    if (!header) return MalformedReply();
    if (header->index == kEndOfDownloads) return FinishDownloads();
    const auto entry = m_downloads.find(header->index);
    if (entry == m_downloads.end()) {
        gamelog->Printf("file index %d unknown!  aborting!\n", static_cast<int32_t>(header->index));
        return Fail();
    }
    m_currentDownload = entry;

    const std::string& path = entry->second.OutputPath();
    MakePath(path);
    m_file.reset();
    if (header->startOffset == 0) {
        unlink(path.c_str());
        m_file = OpenForWriting(path);
    } else {
        gamelog->Printf("resuming %s\n", path.c_str());
        m_file = OpenForAppending(path);
    }
    if (!m_file) {
        gamelog->Printf("can't open %s!  aborting!", path.c_str());
        return Fail();
    }
    SetBuffer(&m_file, kFileBuffer);
    m_state = STATE_DOWN_DATA;
    return 0;
}

int UpdateClient::StepDownloadData() {
    const auto length = static_cast<size_t>(m_packetLength);
    const DownloadEntry& entry = m_currentDownload->second;
    if (length > 0 && fwrite(m_packet, 1, length, m_file.get()) < length) {
        return FailWriting(entry.OutputPath());
    }
    if (m_packetLength < kDataPacketSize) {
        // A full disk may show only now, when the last buffered bytes are written.
        if (!CloseWritten(std::move(m_file))) return FailWriting(entry.OutputPath());
        if (!entry.isPatch) {
            m_downloads.erase(m_currentDownload);
            m_currentDownload = m_downloads.end();
        }
        ++m_receivedCount;
        m_state = STATE_DOWN_HEADER;
    }
    m_bytesDone += m_packetLength;
    ShowProgress();
    return 0;
}

int UpdateClient::FailWriting(const std::string& path) {
    gamelog->Printf("can't write to %s!  aborting! (probably a full harddrive)", path.c_str());
    return Fail();
}

int UpdateClient::FinishDownloads() {
    m_progress->ShowProgress(m_bytesTotal, m_bytesTotal);
    if (m_downloads.empty()) {
        m_progress->SetStatus("Download complete.");
    } else {
        m_progress->SetStatus("Applying patches...");
        ApplyPatches();
    }
    WriteVersionRecord();
    m_state = STATE_ENDING;
    return SESSION_COMPLETE;
}
