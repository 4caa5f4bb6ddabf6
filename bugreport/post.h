// Sends a report.
#ifndef HALCYRIX_BUGREPORT_POST_H
#define HALCYRIX_BUGREPORT_POST_H

// Posts `length` bytes of body to port 80 of the host, with a query in the request line unless it
// is null or empty. Blocks until the first bytes of the reply have come. Returns the status code of
// the reply, 0 when it has none, -1 when the host name does not resolve, -3 when no connection can
// be made.
int PostBugReport(const char* host, const char* body, unsigned length, const char* query);

#endif
