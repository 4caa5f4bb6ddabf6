// Replaces the configured hosts in programs that link it.
#include "bugreport/host.h"
#include "update/server_pool.h"

const char* server_pool[] = {"127.0.0.1", "127.0.0.2", nullptr};
const char* const bugreport_host = "127.0.0.1";
