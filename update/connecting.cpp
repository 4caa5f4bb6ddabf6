// Connecting to an update server: the host list, the timeout and the report when none is left.

#include <cstdarg>
#include <string>

#include "halcyrix_config.h"
#include "log/gamelog.h"
#include "update/messages.h"
#include "update/server_pool.h"
#include "update/update_client.h"

namespace {
constexpr uint64_t kConnectTimeout = 10000;  // milliseconds
}

int UpdateClient::Start(int wantMotd, ...) {
    m_serverIndex = 0;
    if (m_connected) {
        gamelog->Printf("Already connected!\n");
        return 0;
    }
    m_components.clear();
    va_list names;
    va_start(names, wantMotd);
    while (const char* name = va_arg(names, const char*)) m_components.emplace_back(name);
    va_end(names);
    m_wantMotd = wantMotd != 0;
    m_bytesTotal = 0;
    m_bytesDone = 0;
    m_receivedCount = 0;
    ReadVersionRecord();
    return ConnectNext();
}

int UpdateClient::ConnectNext() {
    // The next conversation starts without the file and the states of this one.
    m_file.reset();
    s_returnStates.Clear();

    const char* host = server_pool[m_serverIndex];
    if (host == nullptr) {
        gamelog->Printf("Can't reach any Brenmoor update server!\n");
        m_progress->SetStatus("Connection failed");
        PrintUnreachable();
        Close();
        Cancel();  // else the last attempt's timeout would repeat this
        return 0;
    }
    ++m_serverIndex;

    const std::string text =
        "Connecting to " + std::string(host) + ":" + std::to_string(kUpdatePort) + "...";
    m_progress->SetStatus(text.c_str());
    gamelog->Printf("%s\n", text.c_str());
    // After a failed start there is nothing to watch. The timeout goes on to the next host.
    if (!Connect(host, kUpdatePort)) gamelog->Printf("Failed connecting to %s\n", host);

    m_state = STATE_CONNECTING;
    SetFlags(IO_WRITE);
    if (m_connected) m_loop->RemoveIO(m_registration);
    m_registration = m_loop->AddIO(this);
    m_connected = 1;
    Schedule(kConnectTimeout);
    return 1;
}

void UpdateClient::OnDisconnect() {
    gamelog->Printf("Disconnected\n");
    ConnectNext();
}

int UpdateClient::StepConnecting(SessionEvent event) {
    if (event == EVENT_TIMER) {
        gamelog->Printf("Connection timeout!\n");
        ConnectNext();
    } else if (event == EVENT_WRITABLE) {
        if (const char* error = ConnectError()) {
            gamelog->Printf("Connection failed: %s\n", error);
            ConnectNext();
        } else if (!SendGreeting()) {
            gamelog->Printf("Connection failed: cannot send\n");
            ConnectNext();
        }
    }
    return 0;
}

void UpdateClient::PrintUnreachable() {
    static constexpr char kSeparator[] = "\n\n-----------------------------------------------\n\n";
    gamelog->Printf("%s", kSeparator);
    gamelog->Printf(
        "Unable to connect to the Halcyrix Online \n"
        "update server.  Please ensure that you are connected\n"
        "to the Internet.  You may need to configure any \n"
        "personal firewalling software or check with your \n"
        "network administrator.\n\n");
    gamelog->Printf(
        "For more information on using Halcyrix Online with\n"
        "firewalls, see \n%s",
        HALCYRIX_FIREWALL_HELP_URL);
    gamelog->Printf("%s", kSeparator);
}
