// The update servers.
#ifndef HALCYRIX_UPDATE_SERVER_POOL_H
#define HALCYRIX_UPDATE_SERVER_POOL_H

// Host names in the order of trying, then null. Set by the build.
extern const char* server_pool[];

#endif
