#include "update/server_pool.h"

#include "halcyrix_config.h"

const char* server_pool[] = {HALCYRIX_UPDATE_HOST_LITERALS, nullptr};
