// The stream of a session's downloads.
#ifndef HALCYRIX_SERVE_DOWNLOAD_STREAM_H
#define HALCYRIX_SERVE_DOWNLOAD_STREAM_H

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "lib/stream.h"
#include "serve/output_buffer.h"

// One file or patch to be sent.
struct Download {
    std::string path;  // in the store
    uint32_t index;
    uint32_t checksum;
    uint32_t length;
    uint32_t startOffset = 0;
};

// The downloads that a client has asked for, and how far they have been sent: a header and data
// packets for each, in the order of asking, then the end.
class DownloadStream {
public:
    // False when the index is in the stream already.
    [[nodiscard]] bool Add(Download download);

    // The download added last; there must be one.
    Download& Last() { return m_downloads.back(); }

    enum Result { MORE, COMPLETE, UNREADABLE };

    // Adds packets while the buffer has room. UNREADABLE when a file of the store cannot be read or
    // is not of its length any more; CurrentPath() then names it.
    Result Fill(OutputBuffer* output);

    const std::string& CurrentPath() const { return m_downloads[m_current].path; }

    uint32_t FilesSent() const { return static_cast<uint32_t>(m_current); }

private:
    bool Begin(OutputBuffer* output);
    bool SendPieces(OutputBuffer* output);

    std::vector<Download> m_downloads;
    std::unordered_set<uint32_t> m_indexes;
    size_t m_current = 0;
    Stream m_file;             // of the current download, once its header has been sent
    uint32_t m_remaining = 0;  // of its data
    bool m_ended = false;
};

#endif
