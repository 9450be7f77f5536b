#include "Categories/MD5.h"

#include "platform/digest/Digest.h"
#include "platform/foundation/Hexadecimal.h"

std::string MD5(const platform::Data& data) {
    return platform::hexadecimal(platform::md5(data.bytes()));
}

std::string MD5(const std::string& string) {
    return platform::hexadecimal(platform::md5(string.c_str()));
}
