#pragma once

#include <cstdint>

namespace platform {

/// The number of bytes that the peer of a TCP socket has acknowledged plus the number that it has sent; 0 for
/// any other socket. Bytes that wait in the send buffer do not count, so the number changes only when the
/// connection makes progress.
std::uint64_t bytesMovedThroughSocket(int descriptor);

} // namespace platform
