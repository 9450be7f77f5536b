#pragma once

#include <string>

namespace platform {

/// The program that zips a folder when it is called as "ditto -c -k --keepParent FOLDER ARCHIVE". On macOS it
/// is the system's. On Linux it is /usr/bin/ditto if that exists, otherwise the one in `folder`. It may be
/// absent.
std::string archiverPath(const std::string& folder);

} // namespace platform
