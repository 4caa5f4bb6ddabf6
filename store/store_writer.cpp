#include "store/store_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "lib/whole_file.h"
#include "store/folder.h"

namespace fs = std::filesystem;

namespace {

std::string FormatReservation(const Reservation& reservation) {
    return "halcyrix-reserved 1\nsequence " + std::to_string(reservation.sequence) + "\nindex " +
           std::to_string(reservation.index) + "\n";
}

// Makes a folder unless there is one. Adds the path of a new one to `made`, which may be null.
bool MakeFolder(const std::string& path, std::vector<std::string>* made, std::string* error) {
    std::error_code fault;
    if (fs::create_directory(path, fault) && made != nullptr) made->push_back(path);
    return !fault || Fail(error, path + ": " + fault.message());
}

// `operation` is fsync() for the folder alone, or syncfs() for its whole file system.
bool Sync(const std::string& path, int (*operation)(int), std::string* error) {
    const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = fd != -1 && operation(fd) == 0;
    const std::string reason = SystemError(path);
    if (fd != -1) close(fd);
    return synced || Fail(error, reason);
}

bool RemoveAll(const std::string& path, std::string* error) {
    std::error_code fault;
    fs::remove_all(path, fault);
    return !fault || Fail(error, path + ": " + fault.message());
}

bool Rename(const std::string& from, const std::string& to, std::string* error) {
    if (rename(from.c_str(), to.c_str()) == 0) return true;
    return Fail(error, SystemError(to));
}

}  // namespace

bool ReadReservation(const std::string& store, Reservation* reservation, std::string* error) {
    const std::string path = store + "/" + kReservedFile;
    *reservation = Reservation();
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return true;
    std::string text;
    if (!ReadWholeFile(path, &text, error)) return false;
    sscanf(text.c_str(), "halcyrix-reserved 1\nsequence %" SCNu32 "\nindex %" SCNu32 "\n",
           &reservation->sequence, &reservation->index);
    if (FormatReservation(*reservation) == text) return true;
    *error =
        path + ": damaged; bring it back from a backup, or remove it if no release was withdrawn";
    return false;
}

StoreWriter::StoreWriter() { umask(umask(0) & ~(S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH)); }

std::unique_ptr<StoreWriter> StoreWriter::Open(const std::string& directory, std::string* error) {
    std::vector<fs::path> entries;
    return ListReleases(directory, &entries, error) ? OpenOrMake(directory, error) : nullptr;
}

std::unique_ptr<StoreWriter> StoreWriter::OpenOrMake(const std::string& directory,
                                                     std::string* error) {
    std::unique_ptr<StoreWriter> writer(new StoreWriter);
    const std::string lock = directory + "/" + kLockFile;
    std::vector<std::string>* made = &writer->m_made;
    if (!MakeFolder(directory, made, error) ||
        !MakeFolder(directory + "/" + kReleasesFolder, made, error)) {
        return nullptr;
    }
    if (!made->empty()) made->push_back(lock);
    writer->m_lock = OpenForAppending(lock);
    if (!writer->m_lock) return Fail(error, SystemError(lock));
    if (flock(fileno(writer->m_lock.get()), LOCK_EX | LOCK_NB) != 0) {
        made->clear();
        return Fail(error, errno == EWOULDBLOCK
                               ? directory + ": somebody else is publishing to this store"
                               : SystemError(lock));
    }

    if (!ReadReservation(directory, &writer->m_next, error)) return nullptr;
    writer->m_store = Store::Open(directory, error);
    if (!writer->m_store) return nullptr;
    Reservation& next = writer->m_next;
    for (const auto& release : writer->m_store->Releases()) {
        next.sequence = std::max(next.sequence, release->Sequence() + 1);
        next.index = std::max(next.index, static_cast<uint32_t>(release->NextIndex()));
    }
    for (const auto& [sequence, damaged] : writer->m_store->Damaged()) {
        if (sequence < next.sequence) continue;
        if (!damaged.release) {
            return Fail(error,
                        damaged.reason + "; without it, or the file " + kReservedFile +
                            ", the used numbers are unknown: copy one of the two from a backup");
        }
        next.sequence = sequence + 1;
        next.index = std::max(next.index, static_cast<uint32_t>(damaged.release->NextIndex()));
    }
    return writer;
}

StoreWriter::~StoreWriter() {
    std::error_code ignored;
    if (!m_incoming.empty()) fs::remove_all(m_incoming, ignored);
    while (!m_made.empty()) {
        remove(m_made.back().c_str());
        m_made.pop_back();
    }
}

bool StoreWriter::RemoveLeftovers(std::string* error) {
    std::vector<fs::path> entries;
    if (!ListFolder(m_store->Directory(), &entries, error)) return false;
    for (const fs::path& entry : entries) {
        const bool leftover = entry.filename().string().starts_with(kIncomingPrefix);
        if (leftover && !RemoveAll(entry.string(), error)) return false;
    }
    return true;
}

bool StoreWriter::Begin(std::string* error) {
    if (m_next.sequence > kMaxSequence)
        return Fail(error, m_store->Directory() + ": no sequence number is left");
    if (!RemoveLeftovers(error)) return false;
    m_incoming = m_store->Directory() + "/" + kIncomingPrefix + SequenceName(m_next.sequence);
    return MakeFolder(m_incoming, nullptr, error);
}

// Writes the reservation. Before it counts, all that was written is on the disk.
bool StoreWriter::Reserve(const Reservation& next, std::string* error) {
    const std::string& store = m_store->Directory();
    const std::string temporary = store + "/" + kIncomingPrefix + kReservedFile;
    const bool reserved =
        WriteWholeFile(temporary, FormatReservation(next), error) && Sync(store, syncfs, error) &&
        Rename(temporary, store + "/" + kReservedFile, error) && Sync(store, fsync, error);
    if (!reserved) unlink(temporary.c_str());
    return reserved;
}

bool StoreWriter::Commit(const Reservation& next, std::string* error) {
    const std::string releases = m_store->Directory() + "/" + kReleasesFolder;
    // The numbers are reserved first. An interruption in between wastes some, but repeats none.
    if (!Reserve(next, error) ||
        !Rename(m_incoming, releases + "/" + SequenceName(m_next.sequence), error)) {
        return false;
    }
    m_incoming.clear();
    m_made.clear();
    if (Sync(releases, fsync, error)) return true;
    return Fail(error, "release " + SequenceName(m_next.sequence) +
                           " is published, but a power cut now could take it back: " + *error);
}

bool StoreWriter::Remove(uint32_t sequence, std::string* error) {
    const std::string name = SequenceName(sequence);
    const std::string removed = m_store->Directory() + "/" + kIncomingPrefix + "removed." + name;
    const std::string releases = m_store->Directory() + "/" + kReleasesFolder;
    // A half-deleted folder would be in the way of the rename. Only the newest release and the
    // reservation know the last numbers.
    const bool newest = sequence + 1 == m_next.sequence;
    if (!RemoveLeftovers(error) || (newest && !Reserve(m_next, error)) ||
        !Rename(releases + "/" + name, removed, error) || !Sync(releases, fsync, error)) {
        return false;
    }
    m_store->Refresh();
    return RemoveAll(removed, error);
}
