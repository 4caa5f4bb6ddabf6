// The receiver of crash reports.
#pragma once

// Its host name. Set by the build.
extern const char* const bugreport_host;
