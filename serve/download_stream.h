// The stream of a session's downloads.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "lib/stream.h"
#include "serve/event_tools.h"
#include "store/release.h"

// The downloads that a client has asked for, and how far they have been sent: a header and data
// packets for each, by index, then the end. A client may ask for a whole game and then wait for an
// hour, so each download takes one bit here.
class DownloadStream {
public:
    // Adds something that the release has. False when it is in the stream already.
    [[nodiscard]] bool Add(const Release& release, uint32_t index);

    // The download added last; there must be one. It can be made to begin at an offset.
    uint32_t Last() const { return m_last; }
    void ResumeLast(uint32_t offset) { m_offsets[m_last] = offset; }

    enum Result { MORE, COMPLETE, READ_FAILED };

    // Fills the empty buffer with packets, as many as are worth one write. READ_FAILED when a file
    // of the store cannot be read or is not of its length any more.
    Result Fill(const Release& release, evbuffer* output);

    uint32_t FilesSent() const { return m_filesSent; }

private:
    bool Begin(const Release& release, evbuffer* output);
    bool SendPieces(evbuffer* output);

    std::vector<bool> m_asked;               // by index, from the release's first
    std::map<uint32_t, uint32_t> m_offsets;  // by index, where not 0
    uint32_t m_last = 0;
    uint32_t m_place = 0;  // in m_asked: what is sent now or next
    uint32_t m_filesSent = 0;
    Stream m_file;             // of the current download, once its header has been sent
    uint32_t m_remaining = 0;  // of its data
};
