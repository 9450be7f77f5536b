#include "MachO/TWLHashNSString.h"

#include "platform/Digest.h"
#include "platform/Hexadecimal.h"

std::string TWLHashNSString(std::string_view text) {
    return platform::hexadecimal(platform::sha1(text.substr(0, text.find('\0'))));
}
