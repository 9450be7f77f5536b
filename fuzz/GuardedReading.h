#pragma once

#include <cstddef>
#include <string_view>

namespace fuzz {

/// Reads Mach-O bytes from memory behind which there is no page: whatever reads past them crashes, with a
/// sanitizer or without.
class GuardedReading {
public:
    /// For inputs of up to `size` bytes.
    explicit GuardedReading(std::size_t size);
    ~GuardedReading();
    GuardedReading(const GuardedReading&) = delete;
    GuardedReading& operator=(const GuardedReading&) = delete;

    /// Makes objects of all slices of a copy of the bytes and asks them for all that they know. False when an
    /// answer leads outside, or when it took a second.
    bool read(std::string_view bytes);

private:
    std::size_t _size;
    char* _start;
};

} // namespace fuzz
