#include "Categories/MD5.h"

#include "platform/Digest.h"
#include "platform/Hexadecimal.h"

std::string MD5(const platform::Data& data) {
    return platform::hexadecimal(platform::md5(data.bytes()));
}

std::string MD5(const std::string& string) {
    return platform::hexadecimal(platform::md5(string.c_str()));
}
