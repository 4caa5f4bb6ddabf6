#include "bugreport/host.h"

#include "halcyrix_config.h"

const char* const bugreport_host = HALCYRIX_BUGREPORT_HOST;
