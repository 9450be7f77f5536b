#pragma once

#include <cstddef>
#include <memory>

namespace platform {

/// `size` bytes of uninitialized memory. Large buffers use large pages where the system has them, because
/// these are faster to fill. Throws std::bad_alloc.
std::shared_ptr<char> allocateBuffer(std::size_t size);

} // namespace platform
