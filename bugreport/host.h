// The receiver of crash reports.
#ifndef HALCYRIX_BUGREPORT_HOST_H
#define HALCYRIX_BUGREPORT_HOST_H

// Its host name. Set by the build.
extern const char* const bugreport_host;

#endif
