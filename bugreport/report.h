// What a crash report says: a query in the request line, and a body with the game's files.
#ifndef HALCYRIX_BUGREPORT_REPORT_H
#define HALCYRIX_BUGREPORT_REPORT_H

#include <string>

// Names the player and the crash address. The name is encoded and cut at 1023 encoded characters;
// the address stands as it is.
std::string ReportQuery(const char* userName, const char* crashAddress);

// The description, followed by a section for each of the game's logs and settings in the working
// directory.
std::string ReportBody(const char* description);

// Appends the section of one file and returns the new text: its whole contents up to 8192 bytes,
// else its first 1024 and last 7168 bytes. Text ends at its first NUL, so the contents do. What
// is missing or no regular file reads as "(no file)".
std::string AppendReportFile(std::string text, const char* path);

#endif
