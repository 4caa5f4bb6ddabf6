// Takes the place of the configured hosts in the measuring programs, so that the servers of tests
// can run beside them.
#include "update/server_pool.h"

const char* server_pool[] = {"127.0.0.3", nullptr};
