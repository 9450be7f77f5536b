#pragma once

#include <string_view>

/// Facts about the running program and its machine that only the operating system knows. Any thread.
namespace platform {

/// The start of the main executable's image in memory; null if the system does not report it. It stays
/// mapped while the process runs.
const void* ownImageBase();

/// The path of the file from which the image at `address` was loaded; null if there is none. Valid as long
/// as the image is loaded. For the main executable it is the absolute path with which the program was
/// started: links are not resolved, and the file may have been deleted.
const char* imagePath(const void* address);

/// The name of the host's processor in Apple's architecture table, such as "x86_64" or "arm64"; empty if the
/// table has none.
std::string_view hostArchitecture();

} // namespace platform
