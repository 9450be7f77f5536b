#pragma once

#include <cstddef>
#include <string_view>

namespace support {

/// Reads Mach-O bytes from memory that is followed by an inaccessible page: a read beyond their end crashes,
/// with or without a sanitizer.
class GuardedReading {
public:
    /// For inputs of up to `size` bytes.
    explicit GuardedReading(std::size_t size);
    ~GuardedReading();
    GuardedReading(const GuardedReading&) = delete;
    GuardedReading& operator=(const GuardedReading&) = delete;

    /// Makes objects of all slices of a copy of the bytes and calls all their operations. False if a result
    /// points outside the bytes or if this takes a second.
    bool read(std::string_view bytes);

private:
    std::size_t _size;
    char* _start;
};

} // namespace support
