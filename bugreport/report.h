// The contents of a crash report: a query for the request line, and a body with the game's files.
#pragma once

#include <string>

// The player's name, encoded and cut at 1023 encoded characters, and the crash address as it is.
std::string ReportQuery(const char* userName, const char* crashAddress);

// The description, followed by a section for each of the game's logs and settings in the working
// directory.
std::string ReportBody(const char* description);

// Appends the section of one file and returns the new text: the whole contents up to 8192 bytes,
// else the first 1024 and the last 7168 bytes. Contents end at their first NUL. A file that is
// missing or not regular gives "(no file)".
std::string AppendReportFile(std::string text, const char* path);
