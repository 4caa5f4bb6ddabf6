#include "bugreport/submit.h"

#include "bugreport/host.h"
#include "bugreport/post.h"
#include "bugreport/report.h"

int SubmitBugReport(const char* userName, const char* description, const char* crashAddress) {
    const std::string query = ReportQuery(userName, crashAddress);
    const std::string body = ReportBody(description);
    return PostBugReport(bugreport_host, body.c_str(), static_cast<unsigned>(body.size()),
                         query.c_str());
}
