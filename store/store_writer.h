// Writes to a store: one process at a time, and without using a number twice.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/stream.h"
#include "store/store.h"

// The numbers of the next release. STORE/reserved keeps them: when the newest release is withdrawn,
// its numbers must not be used again.
struct Reservation {
    uint32_t sequence = 1;
    uint32_t index = kFirstIndex;
};

// Locks the store against other writers as long as it lives. Its end removes a release that was not
// committed, and a store that was made for it. Sets the umask of the process so that all users can
// read what is written: the service that reads the store runs as another user.
class StoreWriter {
public:
    // Null, with the reason in `error`, when the directory is no store, another process writes to
    // it, or it cannot be known which numbers are taken.
    static std::unique_ptr<StoreWriter> Open(const std::string& directory, std::string* error);
    // The same, but makes a store where there is none. The directory above must exist.
    static std::unique_ptr<StoreWriter> OpenOrMake(const std::string& directory,
                                                   std::string* error);
    ~StoreWriter();
    StoreWriter(const StoreWriter&) = delete;
    StoreWriter& operator=(const StoreWriter&) = delete;

    const Store& Published() const { return *m_store; }
    Reservation Next() const { return m_next; }

    // Removes the incomplete folders of interrupted writers.
    [[nodiscard]] bool RemoveLeftovers(std::string* error);

    // The same, and makes the folder for the next release. Call once.
    [[nodiscard]] bool Begin(std::string* error);
    const std::string& Incoming() const { return m_incoming; }

    // Makes the release visible, whose manifest must be written. It is then whole on the disk or
    // not there at all, whenever the machine stops.
    [[nodiscard]] bool Commit(const Reservation& next, std::string* error);

    // Hides a published release in one step, then deletes its files, which servers may be sending.
    // Its numbers are not used again.
    [[nodiscard]] bool Remove(uint32_t sequence, std::string* error);

private:
    StoreWriter();

    bool Reserve(const Reservation& next, std::string* error);

    Stream m_lock;
    std::unique_ptr<Store> m_store;
    Reservation m_next;
    std::string m_incoming;           // empty unless there is one
    std::vector<std::string> m_made;  // the parts of a new store, until the first commit
};

// Reads STORE/reserved. False when it is damaged; it may be missing.
[[nodiscard]] bool ReadReservation(const std::string& store, Reservation* reservation,
                                   std::string* error);
