#pragma once

#include <cstddef>
#include <memory>

namespace platform {

/// `size` bytes of memory that nobody has written to yet, in the way that costs least to fill: large buffers
/// come in large pages where the system has them. Throws std::bad_alloc.
std::shared_ptr<char> allocateBuffer(std::size_t size);

} // namespace platform
