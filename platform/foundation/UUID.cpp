#include "platform/foundation/UUID.h"

#include "platform/foundation/Hexadecimal.h"

#include <unistd.h>

#include <cctype>
#include <random>

namespace platform {

std::string makeUUIDString() {
    std::random_device entropy;
    std::string bytes;
    while (bytes.size() < 16)
        bytes += static_cast<char>(entropy() & 0xFF);
    bytes[6] = static_cast<char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<char>((bytes[8] & 0x3F) | 0x80);

    std::string text = hexadecimal(bytes);
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const std::size_t dash : {8u, 13u, 18u, 23u})
        text.insert(dash, 1, '-');
    return text;
}

std::string globallyUniqueString() {
    return makeUUIDString() + "-" + std::to_string(::getpid());
}

} // namespace platform
