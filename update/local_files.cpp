// The client's members for local files: calls of the functions in lib/.

#include <unistd.h>

#include "halcyrix_config.h"
#include "lib/local_file_check.h"
#include "lib/patch_file.h"
#include "lib/server_name.h"
#include "lib/version_records.h"
#include "log/gamelog.h"
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
        const std::string& source = next->second.source;
        const std::string& target = next->second.target;
        if (!PatchFile(target, source, m_progress)) {
            gamelog->Printf("patch for %s failed!\n", target.c_str());
            gamelog->Printf(
                "I'm afraid you'll have to re-run the updater\n"
                "and re-download this file.  Your harddrive is full\n"
                "or %s screwed something up.\n",
                HALCYRIX_SUPPORT_EMAIL);
        }
        unlink(source.c_str());
        m_downloads.erase(next);
    }
    m_currentDownload = m_downloads.end();
}
