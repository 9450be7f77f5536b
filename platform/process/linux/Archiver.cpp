#include "platform/process/Archiver.h"

#include "platform/files/Files.h"
#include "platform/foundation/Path.h"

namespace platform {

std::string archiverPath(const std::string& folder) {
    const std::string systemArchiver = "/usr/bin/ditto";
    return fileExists(systemArchiver) ? systemArchiver : pathByAppending(folder, "ditto");
}

} // namespace platform
