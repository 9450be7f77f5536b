#include "platform/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Whatever is read must come back the same when it has been written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = platform::parsePropertyList({reinterpret_cast<const char*>(data), size});
    if (!value)
        return 0;
    const std::string xml = platform::propertyListXML(*value);
    const auto back = platform::parsePropertyList(xml);
    if (!back || platform::propertyListXML(*back) != xml)
        std::abort();
    return 0;
}
