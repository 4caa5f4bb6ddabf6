#include "serve/client_session.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "lib/whole_file.h"
#include "log/gamelog.h"
#include "serve/proxy_header.h"
#include "store/names.h"

namespace {

// Updaters name one or two components. More are an attack.
constexpr size_t kMaxComponents = 16;
constexpr size_t kMaxComponentLength = 255;  // as long as a directory's name can be

constexpr size_t kListPiece = 16 * 1024;
constexpr size_t kMaxMotd = 64 * 1024;

}  // namespace

ClientSession::ClientSession(SessionContext* context, evutil_socket_t fd, const sockaddr_in& peer,
                             bool proxied)
    : m_context(context),
      m_connection(bufferevent_socket_new(context->base.get(), fd, BEV_OPT_CLOSE_ON_FREE)),
      m_deadline(evtimer_new(
          context->base.get(),
          [](evutil_socket_t, short, void* self) {
              static_cast<ClientSession*>(self)->OnDeadline();
          },
          this)),
      m_peer(peer),
      m_proxied(proxied),
      m_started(Clock::now()) {
    bufferevent* const connection = m_connection.get();
    bufferevent_setcb(
        connection,
        [](bufferevent*, void* self) { static_cast<ClientSession*>(self)->OnReadable(); },
        [](bufferevent*, void* self) { static_cast<ClientSession*>(self)->OnDrained(); },
        [](bufferevent*, short what, void* self) {
            static_cast<ClientSession*>(self)->OnHangup(what);
        },
        this);
    bufferevent_setwatermark(connection, EV_READ, 0, kMaxFrame);
    bufferevent_set_max_single_write(connection, EV_SSIZE_MAX);
    bufferevent_enable(connection, EV_READ);
    ++m_context->counts.sessions[m_state];
    Arm(m_deadline.get(), m_context->options.greetingLimit);
}

ClientSession::~ClientSession() { --m_context->counts.sessions[m_state]; }

void ClientSession::Enter(ClientState state) {
    auto& counts = m_context->counts.sessions;
    --counts[m_state];
    ++counts[state];
    m_state = state;
}

Ending ClientSession::TakeProxyHeader() {
    evbuffer* const input = bufferevent_get_input(m_connection.get());
    const auto header = ParseProxyHeader(
        {reinterpret_cast<char*>(evbuffer_pullup(input, -1)), evbuffer_get_length(input)});
    if (!header) return NO_PROXY_HEADER;
    if (header->length == 0) return GOES_ON;
    evbuffer_drain(input, header->length);
    m_peer = header->client.value_or(m_peer);
    if (!m_context->addresses.Add(m_peer, m_context->options.perAddress)) return OVER_SHARE;
    m_proxied = false;
    return GOES_ON;
}

void ClientSession::OnReadable() {
    if (m_proxied) {
        const Ending ending = TakeProxyHeader();
        if (ending != GOES_ON) return End(ending);
        if (m_proxied) return;
    }
    evbuffer* const input = bufferevent_get_input(m_connection.get());
    uint8_t header[kFrameHeaderSize];
    while (evbuffer_copyout(input, header, sizeof header) == sizeof header) {
        const int length = FramePayloadLength(header);
        const int frameLength = kFrameHeaderSize + length;
        if (length > kMaxPayload) return End(BROKE_PROTOCOL);
        if (evbuffer_get_length(input) < static_cast<size_t>(frameLength)) return;
        const uint8_t* frame = evbuffer_pullup(input, frameLength);
        const auto request = DecodeRequest(frame + kFrameHeaderSize, static_cast<size_t>(length));
        evbuffer_drain(input, static_cast<size_t>(frameLength));
        // Clients wait for each reply. Refusing others bounds what a flood of requests can make the
        // buffer hold.
        const Ending ending = request && OutputIsEmpty() ? Answer(*request) : BROKE_PROTOCOL;
        if (ending != GOES_ON) return End(ending);
    }
}

Ending ClientSession::Answer(const Request& request) {
    const bool mayResume = std::exchange(m_mayResume, false);
    switch (m_state) {
        case CONNECTED:
            if (request.tag != kGreeting) return BROKE_PROTOCOL;
            Enter(GREETED);
            return GOES_ON;
        case GREETED:
            if (request.tag == kTagComponent && !m_motdTold) {
                if (m_components.size() == kMaxComponents ||
                    request.name.size() > kMaxComponentLength ||
                    !ComponentFault(request.name).empty()) {
                    return BROKE_PROTOCOL;
                }
                m_components.push_back(request.name);
                return GOES_ON;
            }
            if (m_components.empty()) return BROKE_PROTOCOL;
            if (request.tag == kTagMotd && !std::exchange(m_motdTold, true)) {
                AnswerMotd();
                return GOES_ON;
            }
            return request.tag == kTagVersion ? AnswerVersion() : BROKE_PROTOCOL;
        case NEGOTIATING:
            if (request.tag == kTagResume) {
                return mayResume ? AnswerResume(request.resume) : BROKE_PROTOCOL;
            }
            if (request.tag != kTagQueue) return AnswerFileRequest(request);
            Enter(WAITING);
            m_joined = Clock::now();
            m_ticket = m_context->queue.Join(this);
            return GOES_ON;
        case READY:
            if (request.tag != kTagDownload) return BROKE_PROTOCOL;
            Enter(DOWNLOADING);
            m_bytesWatched = BytesSent();
            Arm(m_deadline.get(), m_context->options.rateWindow);
            return FillOutput();
        default: return BROKE_PROTOCOL;
    }
}

void ClientSession::AnswerMotd() {
    std::string text, error;
    const std::string& file = m_context->options.motdFile;
    if (!file.empty() && !ReadWholeFile(file, &text, &error)) {
        ++m_context->counts.readErrors;
        gamelog->Printf("%s\n", error.c_str());
    }
    text.erase(std::min({text.find('\0'), text.size(), kMaxMotd}));
    text.push_back('\0');
    for (size_t begin = 0; begin < text.size(); begin += kMaxPayload) {
        Send(std::string_view(text).substr(begin, kMaxPayload));
    }
}

Ending ClientSession::AnswerVersion() {
    m_context->RefreshStore();
    m_release = m_context->store->Latest(m_components);
    if (!m_release) return NOT_PUBLISHED;
    evtimer_del(m_deadline.get());
    Enter(LISTING);
    m_listedComponent = m_components.begin();
    Send(m_release->Version());
    return OutputIsEmpty() ? FillOutput() : GOES_ON;
}

void ClientSession::FillFileList(evbuffer* output) {
    while (evbuffer_get_length(output) < kListPiece) {
        if (m_listedComponent == m_components.end()) {
            AddPacket(output, std::string_view("\0", 1));
            Enter(NEGOTIATING);
            return;
        }
        const auto files = m_release->Files(*m_listedComponent);
        if (m_listedFiles == files.size()) {
            ++m_listedComponent;
            m_listedFiles = 0;
            continue;
        }
        const ReleaseFile& file = files[m_listedFiles++];
        AddPacket(output, Encode(FileListEntry{file.name, file.checksum, file.length}));
    }
}

Ending ClientSession::AnswerFileRequest(const Request& request) {
    if (request.tag != kTagChecksum && request.tag != kTagFull && request.tag != kTagPatch) {
        return BROKE_PROTOCOL;
    }
    const ReleaseFile* file = m_release->FindFile(request.name);
    const bool listed = std::ranges::count(m_components, ComponentOf(request.name)) > 0;
    if (file == nullptr || !listed) return BROKE_PROTOCOL;
    if (request.tag == kTagFull) {
        Send(Encode(FullReply{file->index, file->checksum, file->length}));
        return AddDownload(file->index);
    }

    // The version goes to the log, where a bad one could be misread.
    m_installedVersion = VersionFault(request.version).empty() ? request.version : "?";
    if (request.tag == kTagChecksum) {
        const auto installed = m_context->store->Find(request.version);
        const ReleaseFile* before = installed ? installed->FindFile(request.name) : nullptr;
        Send(Encode(ChecksumReply{before != nullptr ? before->checksum : kNoChecksum}));
        return GOES_ON;
    }
    const ReleasePatch* patch = m_release->FindPatch(request.name, request.version);
    if (patch == nullptr) {
        Send(Encode(PatchReply{"", file->index, file->length, file->checksum, false}));
        return AddDownload(file->index);
    }
    Send(Encode(PatchReply{Release::DownloadName(*patch), patch->index, patch->length,
                           patch->checksum, true}));
    return AddDownload(patch->index);
}

Ending ClientSession::AddDownload(uint32_t index) {
    m_mayResume = true;
    return m_downloads.Add(*m_release, index) ? GOES_ON : BROKE_PROTOCOL;
}

Ending ClientSession::AnswerResume(const ResumeRequest& resume) {
    const StoredFile download = m_release->Stored(m_downloads.Last());
    const bool accepted = resume.offset > 0 && resume.offset <= download.length &&
                          FileTailChecksum(download.path, resume.offset) == resume.tailChecksum;
    if (accepted) m_downloads.ResumeLast(resume.offset);
    Send(Encode(ResumeReply{accepted}));
    return GOES_ON;
}

void ClientSession::Admit() {
    const auto now = Clock::now();
    m_context->counts.CountWait(now - std::exchange(m_joined, now));
    bufferevent* const connection = m_connection.get();
    if (m_context->clientRate) {
        bufferevent_set_rate_limit(connection, m_context->clientRate.get());
    }
    if (m_context->totalRate) {
        bufferevent_add_to_rate_limit_group(connection, m_context->totalRate.get());
    }
    Enter(READY);
    Arm(m_deadline.get(), m_context->options.readyLimit);
    Send(Encode(QueueStatus{true, 0, 0, 0}));
}

void ClientSession::TellPlace(const QueueStatus& status) {
    // A client that has not read the last status yet gets no other.
    if (OutputIsEmpty()) Send(Encode(status));
}

// Fills the empty buffer with one piece, so that other clients have their turn.
Ending ClientSession::FillOutput() {
    auto result = DownloadStream::MORE;
    if (m_state == LISTING) FillFileList(Output());
    if (m_state == DOWNLOADING) result = m_downloads.Fill(*m_release, Output());
    m_bytesMade += evbuffer_get_length(Output());
    m_streamMade = result == DownloadStream::COMPLETE;
    return result == DownloadStream::READ_FAILED ? UNREADABLE : GOES_ON;
}

void ClientSession::OnDrained() {
    CountSent();
    if (m_streamMade && m_state == DOWNLOADING) {
        evtimer_del(m_deadline.get());
        Enter(SERVED);
        bufferevent_remove_from_rate_limit_group(m_connection.get());
        DownloadQueue& queue = m_context->queue;
        queue.CountDuration(std::chrono::duration_cast<Milliseconds>(Clock::now() - m_joined));
        queue.Leave(m_ticket);
        // When the server stops, the system sends what is left.
        if (queue.IsClosed()) End(COMPLETED);
        return;
    }
    if (m_state != LISTING && m_state != DOWNLOADING) return;
    const Ending ending = FillOutput();
    if (ending != GOES_ON) End(ending);
}

void ClientSession::OnHangup(short what) {
    const bool vanished = (what & BEV_EVENT_ERROR) != 0 && EVUTIL_SOCKET_ERROR() == ETIMEDOUT;
    const bool done = m_state == SERVED || (m_state == NEGOTIATING && OutputIsEmpty());
    End(vanished ? VANISHED : done ? COMPLETED : BROKE_OFF);
}

void ClientSession::OnDeadline() {
    const ServerOptions& options = m_context->options;
    const uint64_t sent = BytesSent() - std::exchange(m_bytesWatched, BytesSent());
    const auto window = std::chrono::duration<double>(options.rateWindow).count();
    if (m_state != DOWNLOADING ||
        static_cast<double>(sent) < static_cast<double>(options.minRate) * window) {
        return End(m_proxied ? NO_PROXY_HEADER : TOO_SLOW);
    }
    Arm(m_deadline.get(), options.rateWindow);
}

// Most replies go out at once; what the socket does not take waits in the buffer. A broken
// connection shows by an event of its own.
void ClientSession::Send(std::string_view payload) {
    char frame[kMaxFrame];
    const size_t length = PutPacket(frame, payload);
    size_t sent = 0;
    if (OutputIsEmpty()) {
        const ssize_t taken = send(Descriptor(), frame, length, MSG_NOSIGNAL);
        if (taken > 0) sent = static_cast<size_t>(taken);
    }
    if (sent < length) bufferevent_write(m_connection.get(), frame + sent, length - sent);
    m_bytesMade += length;
    CountSent();
}

void ClientSession::CountSent() {
    m_context->counts.sentBytes += BytesSent() - std::exchange(m_bytesCounted, BytesSent());
}

void ClientSession::End(Ending ending) {
    CountSent();
    if (m_state == SERVED && ending == LET_GO) ending = COMPLETED;
    if (m_state == CONNECTED) {
        m_context->notices.Add(AddressText(m_peer) +
                               " never greeted: " + kEndingWords[ending].text);
        if (ending != NO_PROXY_HEADER && ending != OVER_SHARE) ending = NEVER_GREETED;
    } else {
        gamelog->Printf("%s%s%s\n", Summary().c_str(),
                        ending == COMPLETED ? "" : "; dropped: ", kEndingWords[ending].text);
    }
    ++m_context->counts.ended[ending];
    if (ending == UNREADABLE) {
        ++m_context->counts.readErrors;
        m_context->store->Doubt(*m_release);
        m_context->RefreshStore();
    }
    m_context->queue.Leave(m_ticket);
    if (!m_proxied) m_context->addresses.Remove(m_peer);
    m_context->destroy(this);
}

std::string ClientSession::Summary() const {
    std::string components = m_components.empty() ? "-" : Joined(m_components, "+");
    components.resize(std::min(components.size(), kMaxComponentLength));  // in the log
    char numbers[128];
    snprintf(numbers, sizeof numbers, "%u files, %llu bytes, %.1f s", m_downloads.FilesSent(),
             static_cast<unsigned long long>(BytesSent()),
             std::chrono::duration<double>(Clock::now() - m_started).count());
    return AddressText(m_peer) + " " + components + " " + m_installedVersion + " -> " +
           (m_release ? m_release->Version() : "-") + ": " + numbers;
}
