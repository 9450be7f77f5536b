#include "platform/urlloading/linux/SocketProgress.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace platform {

std::uint64_t bytesMovedThroughSocket(int descriptor) {
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return 0;
    return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

} // namespace platform
