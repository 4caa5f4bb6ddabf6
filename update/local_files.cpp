// The client's members for local files, as calls of the functions that know no client.

#include "lib/local_file_check.h"
#include "lib/patch_file.h"
#include "lib/server_name.h"
#include "lib/version_records.h"
#include "update/update_client.h"

void UpdateClient::ReadVersionRecord() {
    m_localVersion = ::ReadVersionRecord(ComponentKey(m_components));
}

void UpdateClient::WriteVersionRecord() {
    ::WriteVersionRecord(ComponentKey(m_components), m_latestVersion);
}

int UpdateClient::CheckFile(const FileRecord& record, uint32_t* size_out, uint32_t* checksum_out) {
    const LocalFileCheck found =
        CheckLocalFile(LocalPath(record.name), record.length, record.checksum, m_progress);
    *checksum_out = found.tailChecksum;
    if (found.opened) *size_out = found.length;
    return found.result;
}

void UpdateClient::ApplyPatches() {
    while (!m_downloads.empty()) {
        const auto next = m_downloads.begin();
        ApplyDownloadedPatch(next->second.target, next->second.source, m_progress);
        m_downloads.erase(next);
    }
    m_currentDownload = m_downloads.end();
}
