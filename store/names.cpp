#include "store/names.h"

#include <algorithm>

#include "lib/server_name.h"
#include "lib/version_records.h"
#include "net/frame.h"
#include "store/release.h"
#include "update/messages.h"

namespace {

bool HasControl(const std::string& text) { return std::ranges::any_of(text, IsControl); }

// The longest request names a version and a file: tag, version, NUL, name, NUL.
static_assert(kTagPatch.size() + kMaxPublishedVersion + 1 + kMaxNameLength + 1 <= kMaxPayload);

}  // namespace

std::string VersionFault(const std::string& version) {
    if (version.empty()) return "is empty";
    if (version.size() > kMaxPublishedVersion) {
        return "is longer than " + std::to_string(kMaxPublishedVersion) + " bytes";
    }
    if (version.find(' ') != std::string::npos) return "has a blank";
    if (HasControl(version)) return "has a control character";
    return {};
}

std::string ComponentFault(const std::string& component) {
    if (component.empty()) return "is empty";
    if (component.find('/') != std::string::npos) return "has a slash";
    if (component == "." || component == "..") return "names a directory";
    if (HasControl(component)) return "has a control character";
    return {};
}

std::string FileNameFault(const std::string& name) {
    if (HasControl(name)) return "has a control character";
    const std::string path = LocalPath(name);
    const std::string first = path.substr(0, path.find('/'));
    if (first == kVersionRecordFile || first == kVersionRecordTemporary || first == kPatchFolder ||
        first == kStartNotes) {
        return "is a name that the updater uses itself";
    }
    if (!IsSafeServerName(name)) return "is refused by the updater: too long, or not a path inside";
    return {};
}
