// What a store needs for writing: that one publishes at a time, and that no number is used twice.
#ifndef HALCYRIX_STORE_STORE_WRITER_H
#define HALCYRIX_STORE_STORE_WRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/stream.h"
#include "store/store.h"

// The numbers that the next release begins with. They are kept beside the releases too, since a
// release that was withdrawn, the newest one, must not free its numbers.
struct Reservation {
    uint32_t sequence = 1;
    uint32_t index = kFirstIndex;
};

// A store that is locked against other writers until the object goes. A release under construction
// that was not committed goes with it, and so does a store that was made for it. What is written
// can be read by all users, whatever the umask of the process was.
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

    // Removes what interrupted writers left.
    [[nodiscard]] bool RemoveLeftovers(std::string* error);

    // The same, and makes the directory for a release with the next sequence number. Call once.
    [[nodiscard]] bool Begin(std::string* error);
    const std::string& Incoming() const { return m_incoming; }

    // Puts all that was written on the disk and makes the release current, whose manifest is
    // written by now. It either happens or not, whenever the machine stops.
    [[nodiscard]] bool Commit(const Reservation& next, std::string* error);

    // Takes a published release away, which either happens or not, and then deletes its files. Its
    // numbers stay taken. A server that is sending its files can no longer.
    [[nodiscard]] bool Remove(uint32_t sequence, std::string* error);

private:
    StoreWriter();

    bool Lock(const std::string& directory, std::string* error);
    bool Reserve(const Reservation& next, std::string* error);

    Stream m_lock;
    std::unique_ptr<Store> m_store;
    Reservation m_next;
    std::string m_incoming;           // empty unless there is one
    std::vector<std::string> m_made;  // of the store itself, until something was committed
};

// Reads STORE/reserved, which may be missing. False when it is damaged.
[[nodiscard]] bool ReadReservation(const std::string& store, Reservation* reservation,
                                   std::string* error);

#endif
