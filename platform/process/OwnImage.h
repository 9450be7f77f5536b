#pragma once

#include <string_view>

/// What only the operating system can tell about the program that runs and the machine that it runs on. All
/// of it may be called from any thread.
namespace platform {

/// Where the main executable's image starts in memory; null when the system does not say. It stays mapped for
/// the life of the process.
const void* ownImageBase();

/// The path of the file that the image around `address` was loaded from, or null when `address` lies in no
/// loaded image. The text lives as long as the image stays loaded. For the main executable it is the absolute
/// path that the program was started with: links are not resolved, and the file may have been deleted since.
const char* imagePath(const void* address);

/// The name that Apple's architecture table gives the host's processor, such as "x86_64" or "arm64"; empty
/// for processors that the table never had.
std::string_view hostArchitecture();

} // namespace platform
