// Collects and posts a crash report.
#pragma once

// Collects the report in the working directory, posts it to bugreport_host and waits for the
// answer. Returns what PostBugReport() does.
int SubmitBugReport(const char* userName, const char* description, const char* crashAddress);
