// Sends a report.
#pragma once

// Posts `length` bytes of body to port 80 of the host, with a query unless it is null or empty.
// Blocks until the first bytes of the reply arrive. Returns the reply's status code, 0 without one,
// -1 when the host name does not resolve, -3 when no connection can be made.
int PostBugReport(const char* host, const char* body, unsigned length, const char* query);
