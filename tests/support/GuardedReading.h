#pragma once

#include <string_view>

namespace support {

/// Reads Mach-O bytes (up to 1 MiB) from memory that is followed by an inaccessible page: a read beyond their
/// end crashes, with or without a sanitizer. Makes objects of all slices and calls all their operations.
/// False if a result points outside the bytes or if this takes a second.
bool readGuarded(std::string_view bytes);

} // namespace support
