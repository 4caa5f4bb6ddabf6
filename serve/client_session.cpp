#include "serve/client_session.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "lib/checksum.h"
#include "lib/file_helpers.h"
#include "log/gamelog.h"
#include "serve/update_server.h"
#include "store/names.h"

namespace {

// A client names one or two components; this many stand for nothing but mischief.
constexpr size_t kMaxComponents = 16;

std::string AddressText(const sockaddr_in& peer) {
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    return text + (":" + std::to_string(ntohs(peer.sin_port)));
}

}  // namespace

ClientSession::ClientSession(UpdateServer* server, int32_t fd, const sockaddr_in& peer)
    : RXPacketTCP(fd, IO_READ),
      m_server(server),
      m_address(AddressText(peer)),
      m_started(EventLoop::Now()),
      m_lastActivity(m_started) {
    SetNonBlocking(fd);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void ClientSession::OnPacket(const uint8_t* data, int length) {
    if (m_state == ENDED) return;
    m_lastActivity = EventLoop::Now();
    // Clients wait for each reply, so only one that does not read comes here with output waiting.
    // This also bounds what a flood of requests can make the buffer hold.
    const auto request = DecodeRequest(data, static_cast<size_t>(length));
    if (!request || !m_output.IsEmpty() || !Answer(*request)) {
        End("broke the protocol");
        return;
    }
    Flush();
}

// False when the request has no place at this point of the conversation.
bool ClientSession::Answer(const Request& request) {
    const bool mayResume = std::exchange(m_mayResume, false);
    switch (m_state) {
        case GREETING: m_state = COMPONENTS; return request.tag == kGreeting;
        case COMPONENTS:
            if (request.tag == kTagComponent) {
                m_components.push_back(request.name);
                return m_components.size() <= kMaxComponents &&
                       ComponentFault(request.name).empty();
            }
            if (m_components.empty()) return false;
            if (request.tag == kTagMotd) {
                AnswerMotd();
                return true;
            }
            return request.tag == kTagVersion && AnswerVersion();
        case MOTD_TOLD: return request.tag == kTagVersion && AnswerVersion();
        case NEGOTIATING:
            if (request.tag == kTagResume) return mayResume && AnswerResume(request.resume);
            if (request.tag == kTagQueue) {
                m_state = QUEUED;
                m_server->Join(this);
                return true;
            }
            return AnswerFileRequest(request);
        case READY: m_state = STREAMING; return request.tag == kTagDownload;
        default: return false;
    }
}

void ClientSession::AnswerMotd() {
    const std::string text = m_server->MotdText();
    for (size_t begin = 0; begin < text.size(); begin += kMaxPayload) {
        Send(std::string_view(text).substr(begin, kMaxPayload));
    }
    m_state = MOTD_TOLD;
}

bool ClientSession::AnswerVersion() {
    m_release = m_server->LatestRelease(m_components);
    if (!m_release) return false;
    Send(m_release->Version());
    m_listedComponent = m_components.begin();
    m_state = LISTING;
    return true;
}

void ClientSession::FillFileList() {
    while (m_output.HasRoom()) {
        if (m_listedComponent == m_components.end()) {
            Send(std::string_view("\0", 1));
            m_state = NEGOTIATING;
            return;
        }
        const auto files = m_release->Files(*m_listedComponent);
        if (m_listedFiles == files.size()) {
            ++m_listedComponent;
            m_listedFiles = 0;
            continue;
        }
        const ReleaseFile& file = files[m_listedFiles++];
        Send(Encode(FileListEntry{file.name, file.checksum, file.length}));
    }
}

// The file of the session's list with this name.
const ReleaseFile* ClientSession::FindListed(const std::string& name) const {
    const ReleaseFile* file = m_release->FindFile(name);
    return file != nullptr && HoldsComponent(name.substr(0, name.find('/'))) ? file : nullptr;
}

bool ClientSession::HoldsComponent(const std::string& component) const {
    return std::find(m_components.begin(), m_components.end(), component) != m_components.end();
}

bool ClientSession::AnswerFileRequest(const Request& request) {
    if (request.tag != kTagChecksum && request.tag != kTagFull && request.tag != kTagPatch) {
        return false;
    }
    const ReleaseFile* file = FindListed(request.name);
    if (file == nullptr) return false;
    const Download whole{m_release->FilePath(*file), file->index, file->checksum, file->length};
    if (request.tag == kTagFull) {
        Send(Encode(FullReply{file->index, file->checksum, file->length}));
        return AddDownload(whole);
    }

    // It goes to the log, and what a client sends may be anything.
    m_installedVersion = VersionFault(request.version).empty() ? request.version : "?";
    if (request.tag == kTagChecksum) {
        const auto installed = m_server->FindRelease(request.version);
        const ReleaseFile* before = installed ? installed->FindFile(request.name) : nullptr;
        Send(Encode(ChecksumReply{before != nullptr ? before->checksum : kNoChecksum}));
        return true;
    }
    const ReleasePatch* patch = m_release->FindPatch(request.name, request.version);
    if (patch == nullptr) {
        Send(Encode(PatchReply{"", file->index, file->length, file->checksum, false}));
        return AddDownload(whole);
    }
    Send(Encode(PatchReply{Release::DownloadName(*patch), patch->index, patch->length,
                           patch->checksum, true}));
    return AddDownload(
        {m_release->PatchPath(*patch), patch->index, patch->checksum, patch->length});
}

bool ClientSession::AddDownload(Download download) {
    m_mayResume = true;
    return m_downloads.Add(std::move(download));
}

bool ClientSession::AnswerResume(const ResumeRequest& resume) {
    Download& download = m_downloads.Last();
    const bool accepted = resume.offset > 0 && resume.offset <= download.length &&
                          FileTailChecksum(download.path, resume.offset) == resume.tailChecksum;
    if (accepted) download.startOffset = resume.offset;
    Send(Encode(ResumeReply{accepted}));
    return true;
}

void ClientSession::Admit() {
    m_state = READY;
    Send(Encode(QueueStatus{true, 0, 0, 0}));
    Flush();
}

void ClientSession::TellPlace(uint16_t position, uint16_t queueLength, uint16_t rate) {
    // Who has not read the last status yet does not need another.
    if (!m_output.IsEmpty()) return;
    Send(Encode(QueueStatus{false, position, queueLength, rate}));
    Flush();
}

void ClientSession::OnWritable() {
    Flush();
}

void ClientSession::OnDisconnect() {
    // A balancer looks in without a word, to see whether somebody is there.
    const bool unused = m_state == GREETING;
    const bool done = m_state == STREAMED || (m_state == NEGOTIATING && m_output.IsEmpty());
    End(unused || done ? "" : "hung up early");
}

void ClientSession::FillOutput() {
    if (m_state == LISTING) FillFileList();
    if (m_state != STREAMING) return;
    switch (m_downloads.Fill(&m_output)) {
        case DownloadStream::MORE: return;
        case DownloadStream::COMPLETE: m_state = STREAMED; return;
        case DownloadStream::UNREADABLE:
            m_server->CountError();
            End("cannot read " + m_downloads.CurrentPath() + " as it was published");
            return;
    }
}

// One piece for each call, so that a fast client leaves the others their turn.
void ClientSession::Flush() {
    FillOutput();
    if (m_state == ENDED) return;
    if (!m_output.IsEmpty()) {
        const int sent = m_output.SendTo(m_fd);
        if (sent == -1) {
            OnDisconnect();
            return;
        }
        if (sent > 0) m_lastActivity = EventLoop::Now();
        m_bytesSent += static_cast<uint64_t>(sent);
    }
    const bool more = !m_output.IsEmpty() || m_state == LISTING || m_state == STREAMING;
    SetFlags(more ? IO_READ | IO_WRITE : IO_READ);
    if (m_state == STREAMED && !more) m_server->Finish(this);
}

void ClientSession::End(const std::string& fault) {
    if (m_state == ENDED) return;
    auto ending = fault.empty() ? UpdateServer::COMPLETED : UpdateServer::DROPPED;
    if (m_state == GREETING && fault.empty()) ending = UpdateServer::UNUSED;
    if (ending != UpdateServer::UNUSED) {
        gamelog->Printf("%s%s%s\n", Summary().c_str(),
                        fault.empty() ? "" : "; dropped: ", fault.c_str());
    }
    m_state = ENDED;
    Close();
    m_server->Remove(this, ending);
}

std::string ClientSession::Summary() const {
    std::string components;
    for (const std::string& component : m_components) {
        if (!components.empty()) components += '+';
        components += component;
    }
    char numbers[128];
    snprintf(numbers, sizeof numbers, "%u files, %llu bytes, %.1f s", m_downloads.FilesSent(),
             static_cast<unsigned long long>(m_bytesSent),
             static_cast<double>(EventLoop::Now() - m_started) / 1000);
    const std::string latest = m_release ? m_release->Version() : "-";
    const std::string installed = m_installedVersion.empty() ? "-" : m_installedVersion;
    return m_address + " " + (components.empty() ? "-" : components) + " " + installed + " -> " +
           latest + ": " + numbers;
}
