#pragma once

#include <cstdint>

namespace platform {

/// How many bytes the peer of a TCP socket has acknowledged and sent so far, together; 0 for any other
/// socket. What only waits in the system's send buffer does not count, so the number stands still exactly
/// when the connection does.
std::uint64_t bytesMovedThroughSocket(int descriptor);

} // namespace platform
