#include "platform/files/Buffer.h"

namespace platform {

std::shared_ptr<char> allocateBuffer(std::size_t size) {
    return {new char[size], std::default_delete<char[]>()};
}

} // namespace platform
