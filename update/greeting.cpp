// The start of a conversation: greeting, message of the day, latest version and file list.

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "lib/server_name.h"
#include "log/gamelog.h"
#include "update/client_limits.h"
#include "update/messages.h"
#include "update/update_client.h"

namespace {
constexpr int kMotdPiece = 128;  // bytes
}

// False when the greeting cannot be sent.
bool UpdateClient::SendGreeting() {
    if (!Send(kGreeting)) return false;
    for (const std::string& component : m_components) {
        m_pendingRequest = EncodeNamed(kTagComponent, component);
        Send(m_pendingRequest);
    }
    m_motdLength = 0;
    if (m_wantMotd) {
        Send(kTagMotd);
        WaitForReply(STATE_MOTD);
    } else {
        RequestVersion();
    }
    return true;
}

void UpdateClient::RequestVersion() {
    m_progress->SetStatus("Requesting latest version...");
    m_checkList.clear();
    m_nameBytes = 0;
    Send(kTagVersion);
    WaitForReply(STATE_VERSION);
}

int UpdateClient::StepMotd() {
    m_motdLength += static_cast<size_t>(m_packetLength);
    if (m_motdLength > kMaxMotdLength) {
        return Abort("the server sends a message of the day without end!  aborting!\n");
    }
    const auto* text = reinterpret_cast<const char*>(m_packet);
    for (int begin = 0; begin < m_packetLength;) {
        const int most = std::min(m_packetLength - begin, kMotdPiece);
        const auto* lineFeed = static_cast<const char*>(memchr(text + begin, '\n', most));
        const int length =
            lineFeed != nullptr ? static_cast<int>(lineFeed - (text + begin)) + 1 : most;
        gamelog->Printf("%s", std::string(text + begin, length).c_str());
        begin += length;
    }
    const bool last = m_packetLength == 0 || m_packet[m_packetLength - 1] == 0;
    if (last) RequestVersion();
    return 0;
}

int UpdateClient::StepVersion() {
    const size_t most = std::min<size_t>(m_packetLength, kMaxVersionLength);
    const auto* text = reinterpret_cast<const char*>(m_packet);
    m_latestVersion.assign(text, strnlen(text, most));
    gamelog->Printf("Latest version: %s\n", m_latestVersion.c_str());
    m_bytesTotal = 0;
    m_bytesDone = 0;
    m_state = STATE_FILE_LIST;
    return 0;
}

int UpdateClient::StepFileList() {
    if (m_packetLength > 0 && m_packet[0] == 0) {
        DecideByVersion();
        return 0;
    }
    auto entry = Decode<FileListEntry>(m_packet, m_packetLength);
    if (!entry) return MalformedReply();
    if (!IsSafeServerName(entry->name))
        return Abort("refusing the name %s from the server!  aborting!\n", entry->name.c_str());
    m_nameBytes += entry->name.size();
    if (m_checkList.size() == kMaxListedFiles || m_nameBytes > kMaxNameBytes) {
        return Abort("the server sends a file list without end!  aborting!\n");
    }
    FileRecord& record = m_checkList.emplace_back();
    record.name = std::move(entry->name);
    record.checksum = entry->checksum;
    record.length = entry->length;
    return 0;
}

void UpdateClient::DecideByVersion() {
    if (m_localVersion.empty()) {
        WriteVersionRecord();
        gamelog->Printf("No local version found; downloading %s...\n", m_latestVersion.c_str());
        m_progress->SetStatus(("Negotiating download of " + m_latestVersion).c_str());
        StartChecks(STATE_VERIFY);
    } else if (m_localVersion == m_latestVersion) {
        gamelog->Printf("Version is current; verifying files...\n");
        m_progress->SetStatus("Version is current; verifying files...");
        StartChecks(STATE_VERIFY);
    } else {
        gamelog->Printf("Patching version %s to %s...\n", m_localVersion.c_str(),
                        m_latestVersion.c_str());
        m_progress->SetStatus(("Negotiating update to " + m_latestVersion + "...").c_str());
        StartChecks(STATE_NEGOTIATE);
    }
}
