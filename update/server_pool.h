// The update servers.
#pragma once

// Host names in the order of trying, then null. Set by the build.
extern const char* server_pool[];
