// The download queue, the download stream, and the end of a session that downloaded something.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "lib/file_helpers.h"
#include "log/gamelog.h"
#include "update/messages.h"
#include "update/update_client.h"

namespace {

bool HasOneName(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
}

}  // namespace

void UpdateClient::ShowProgress() { m_progress->ShowProgress(m_bytesDone, m_bytesTotal); }

int UpdateClient::RequestQueue() {
    Send(kTagQueue);
    WaitForReply(STATE_QUEUE);
    ShowProgress();
    return 0;
}

int UpdateClient::StepQueue() {
    const auto status = Decode<QueueStatus>(m_packet, m_packetLength);
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
    Send(kTagDownload);
    WaitForReply(STATE_DOWN_HEADER);
    return 0;
}

int UpdateClient::StepDownloadHeader() {
    const auto header = Decode<DownloadHeader>(m_packet, m_packetLength);
    if (!header) return MalformedReply();
    if (header->index == kEndOfDownloads) return FinishDownloads();
    const auto index = static_cast<int32_t>(header->index);
    const auto entry = m_downloads.find(index);
    if (entry == m_downloads.end() || entry->second.received) {
        return Abort("file index %d unknown!  aborting!\n", index);
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
        // Appending would change the file under its other names, which may be outside.
        if (HasOneName(path)) m_file = OpenForAppending(path);
        if (!m_file) {
            unlink(path.c_str());  // else every later session would fail
        } else if (StreamSize(m_file.get()) != header->startOffset) {
            m_file.reset();  // another program changed it
        }
    }
    if (!m_file) return Abort("can't open %s!  aborting!", path.c_str());
    // Each packet goes to the file at once, so a killed program loses nothing that was received.
    setvbuf(m_file.get(), nullptr, _IONBF, 0);
    m_state = STATE_DOWN_DATA;
    return 0;
}

int UpdateClient::StepDownloadData() {
    const auto length = static_cast<size_t>(m_packetLength);
    DownloadEntry& entry = m_currentDownload->second;
    const bool last = m_packetLength < kDataPacketSize;
    bool written = fwrite(m_packet, 1, length, m_file.get()) == length;
    if (last) written = CloseWritten(std::move(m_file)) && written;
    if (!written) {
        return Abort("can't write to %s!  aborting! (probably a full harddrive)",
                     entry.OutputPath().c_str());
    }
    if (last) {
        entry.received = true;
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
