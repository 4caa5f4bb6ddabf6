// Update servers for tests, on the test's own dispatcher.
#ifndef HALCYRIX_TESTS_SUPPORT_SCRIPTED_SERVER_H
#define HALCYRIX_TESTS_SUPPORT_SCRIPTED_SERVER_H

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "net/packet_tcp.h"
#include "net/tcp_listen.h"

class ScriptedServer;

// One connection to a scripted server. Replies must fit the socket's buffer.
class ScriptedPeer : public RXPacketTCP {
public:
    ScriptedPeer(ScriptedServer* server, int32_t fd);

    void Reply(const std::string& payload);
    // Bytes that need not be a frame.
    void SendRaw(const std::string& bytes);
    // The same bytes again and again, as fast as they are taken.
    void Flood(const std::string& bytes);
    void HangUp() { Close(); }

    void OnPacket(const uint8_t* data, int length) override;
    void OnDisconnect() override { Close(); }
    void OnWritable() override;

private:
    ScriptedServer* m_server;
    std::string m_flood;
    size_t m_flooded = 0;  // of the current round
};

// Listens on the update port of an address and calls the script for every request.
class ScriptedServer : public RXTCPListen {
public:
    using Script = std::function<void(ScriptedPeer&, const std::string& request)>;

    ScriptedServer(EventLoop* loop, const char* address, Script script);
    ~ScriptedServer() override;

    void OnAccept(int32_t fd, const sockaddr_in& addr) override;

    Script script;
    std::vector<std::string> requests;  // of all connections

private:
    EventLoop* m_loop;
    std::list<std::unique_ptr<ScriptedPeer>> m_peers;
};

// A small release and the conversation of an honest server about it. Each copy serves one
// connection at a time.
struct HonestScript {
    std::string version = "1.1";
    std::map<std::string, std::string> files;     // contents by name
    std::map<std::string, std::string> oldFiles;  // contents in the installed version
    std::map<std::string, std::string> patches;   // by name of the file
    std::string motd = "Welcome.\n";

    void operator()(ScriptedPeer& peer, const std::string& request);

    // What is sent instead of the n-th reply packet of the conversation, counted from 0; an empty
    // function leaves all as they are.
    std::function<void(ScriptedPeer&, int number, const std::string& reply)> replace;

private:
    struct Sent {
        uint32_t index;
        std::string data;
        uint32_t offset;
    };

    void Reply(ScriptedPeer& peer, const std::string& payload);
    void ReplyFile(ScriptedPeer& peer, const std::string& name);
    void ReplyPatch(ScriptedPeer& peer, const std::string& name);
    void Stream(ScriptedPeer& peer);
    uint32_t IndexOf(const std::string& name) const;

    std::vector<Sent> m_stream;
    int m_replies = 0;
};

// The whole-file checksum of contents in memory.
uint32_t ContentsChecksum(const std::string& contents);

#endif
