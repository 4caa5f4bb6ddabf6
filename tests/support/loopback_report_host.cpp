// Takes the place of the configured host in programs that link it.
#include "bugreport/host.h"

const char* const bugreport_host = "127.0.0.1";
