#include "tests/support/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "lib/checksum.h"
#include "update/messages.h"

namespace {

constexpr uint32_t kFirstFileIndex = 100;
constexpr uint32_t kFirstPatchIndex = 200;

}  // namespace

ScriptedPeer::ScriptedPeer(ScriptedServer* server, int32_t fd)
    : RXPacketTCP(fd, IO_READ), m_server(server) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void ScriptedPeer::Reply(const std::string& payload) {
    SendPacket(payload.data(), static_cast<int>(payload.size()));
}

void ScriptedPeer::SendRaw(const std::string& bytes) {
    send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void ScriptedPeer::Flood(const std::string& bytes) {
    m_flood = bytes;
    SetFlags(IO_READ | IO_WRITE);
}

void ScriptedPeer::OnWritable() {
    const ssize_t sent = send(m_fd, m_flood.data() + m_flooded, m_flood.size() - m_flooded,
                              MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) m_flooded = (m_flooded + static_cast<size_t>(sent)) % m_flood.size();
}

void ScriptedPeer::OnPacket(const uint8_t* data, int length) {
    const std::string request(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
    m_server->requests.push_back(request);
    if (IsOpen()) m_server->script(*this, request);
}

ScriptedServer::ScriptedServer(EventLoop* loop, const char* address, Script answers)
    : RXTCPListen(kUpdatePort, inet_addr(address)), script(std::move(answers)), m_loop(loop) {
    m_loop->AddIO(this);
}

ScriptedServer::~ScriptedServer() {
    for (const auto& peer : m_peers) m_loop->RemoveFd(peer->m_fd);
    m_loop->RemoveFd(m_fd);
}

void ScriptedServer::OnAccept(int32_t fd, const sockaddr_in&) {
    m_loop->AddIO(m_peers.emplace_back(std::make_unique<ScriptedPeer>(this, fd)).get());
}

uint32_t HonestScript::IndexOf(const std::string& name) const {
    return static_cast<uint32_t>(std::distance(files.begin(), files.find(name)));
}

void HonestScript::Reply(ScriptedPeer& peer, const std::string& payload) {
    const int number = m_replies++;
    if (!peer.IsOpen()) return;
    if (replace) {
        replace(peer, number, payload);
    } else {
        peer.Reply(payload);
    }
}

void HonestScript::ReplyFile(ScriptedPeer& peer, const std::string& name) {
    const std::string& data = files.at(name);
    const uint32_t index = kFirstFileIndex + IndexOf(name);
    m_stream.push_back({index, data, 0});
    Reply(peer,
          Encode(FullReply{index, ContentsChecksum(data), static_cast<uint32_t>(data.size())}));
}

void HonestScript::ReplyPatch(ScriptedPeer& peer, const std::string& name) {
    const auto patch = patches.find(name);
    const bool isPatch = patch != patches.end();
    const std::string& data = isPatch ? patch->second : files.at(name);
    const uint32_t index = (isPatch ? kFirstPatchIndex : kFirstFileIndex) + IndexOf(name);
    m_stream.push_back({index, data, 0});
    Reply(peer,
          Encode(PatchReply{isPatch ? "patches/" + std::to_string(index) : "", index,
                            static_cast<uint32_t>(data.size()), ContentsChecksum(data), isPatch}));
}

void HonestScript::Stream(ScriptedPeer& peer) {
    for (const Sent& sent : m_stream) {
        Reply(peer, Encode(DownloadHeader{sent.index, 0, 0, sent.offset}));
        size_t at = sent.offset;
        for (size_t size = kDataPacketSize; size == kDataPacketSize; at += size) {
            size = std::min<size_t>(sent.data.size() - at, kDataPacketSize);
            Reply(peer, sent.data.substr(at, size));
        }
    }
    Reply(peer, Encode(DownloadHeader{kEndOfDownloads, 0, 0, 0}));
}

void HonestScript::operator()(ScriptedPeer& peer, const std::string& payload) {
    const auto request =
        DecodeRequest(reinterpret_cast<const uint8_t*>(payload.data()), payload.size());
    const bool named = request && (request->tag == kTagFull || request->tag == kTagPatch);
    if (!request || (named && !files.contains(request->name)) ||
        (request->tag == kTagResume && m_stream.empty())) {
        return peer.HangUp();
    }
    if (request->tag == kGreeting) {
        m_stream.clear();
        m_replies = 0;
    } else if (request->tag == kTagMotd) {
        Reply(peer, motd + '\0');
    } else if (request->tag == kTagVersion) {
        Reply(peer, version);
        for (const auto& [name, data] : files) {
            Reply(peer, Encode(FileListEntry{name, ContentsChecksum(data),
                                             static_cast<uint32_t>(data.size())}));
        }
        Reply(peer, std::string(1, '\0'));
    } else if (request->tag == kTagChecksum) {
        const auto old = oldFiles.find(request->name);
        Reply(peer, Encode(ChecksumReply{old != oldFiles.end() ? ContentsChecksum(old->second)
                                                               : kNoChecksum}));
    } else if (request->tag == kTagFull) {
        ReplyFile(peer, request->name);
    } else if (request->tag == kTagPatch) {
        ReplyPatch(peer, request->name);
    } else if (request->tag == kTagResume) {
        Sent& last = m_stream.back();
        const uint32_t offset = request->resume.offset;
        const uint32_t start = offset > 1024 ? offset - 1024 : 0;
        const bool accepted = offset > 0 && offset <= last.data.size() &&
                              Checksum(last.data.data() + start, offset - start,
                                       kRangeChecksumStart) == request->resume.tailChecksum;
        if (accepted) last.offset = offset;
        Reply(peer, Encode(ResumeReply{accepted}));
    } else if (request->tag == kTagQueue) {
        Reply(peer, Encode(QueueStatus{true, 0, 0, 0}));
    } else if (request->tag == kTagDownload) {
        Stream(peer);
    }
}

uint32_t ContentsChecksum(const std::string& contents) {
    uint32_t value = kFileChecksumStart;
    for (size_t at = 0; at < contents.size(); at += 4096) {
        const auto piece = static_cast<uint32_t>(std::min<size_t>(contents.size() - at, 4096));
        value = Checksum(contents.data() + at, piece, value);
    }
    return value;
}
