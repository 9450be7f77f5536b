#include "platform/files/AtomicWrite.h"
#include "platform/files/Files.h"
#include "platform/foundation/Path.h"
#include "platform/propertylist/PropertyList.h"
#include "support/MachOImage.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// Writes each seed to a file in "<folder>/<target>".
void writeSeeds(const std::string& folder, const std::string& target, const std::vector<std::string>& seeds) {
    const std::string path = platform::pathByAppending(folder, target);
    if (const auto made = platform::createDirectories(path); !made) {
        std::fprintf(stderr, "%s\n", made.error().description().c_str());
        std::exit(1);
    }
    for (std::size_t i = 0; i < seeds.size(); ++i) {
        const std::string file = platform::pathByAppending(path, std::to_string(i));
        if (const auto written = platform::writeFileAtomically(file, seeds[i]); !written) {
            std::fprintf(stderr, "%s\n", written.error().description().c_str());
            std::exit(1);
        }
    }
}

/// An array with one object of each type.
std::string binaryPropertyList() {
    const std::string zeros(16, '\0'), zero(1, '\0');
    const std::string objects[] = {"\xAC\1\2\3\4\5\6\7\x8\x9\xA\xB\xC",
                                   zero,
                                   "\x09",
                                   "\x10\x05",
                                   "\x14" + zeros,
                                   "\x22\x3F\x80" + zero + zero,
                                   "\x33\x41\xC3" + zeros.substr(0, 6),
                                   "\x42xy",
                                   "\x5F\x10\x02xy",
                                   "\x62\xD8\x3D\xDE" + zero,
                                   "\x81\x01\x02",
                                   "\xC1\x02",
                                   "\xD1\x08\x03"};
    std::string bytes = "bplist00", offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size());
        bytes += object;
    }
    const char table = static_cast<char>(bytes.size());
    return bytes + offsets + zeros.substr(0, 6) + "\1\1" + zeros.substr(0, 7) + "\xD" + zeros.substr(0, 15) +
           table;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
        return 2;
    }
    using platform::Value;
    const Value list = Value::Dictionary{{"CFBundleIdentifier", "com.apple.xcode.dsym.ShopApp"},
                                         {"CFBundleVersion", 149},
                                         {"values", Value::Array{1.5, true, platform::Data("bytes"), "&<>"}}};
    writeSeeds(argv[1], "MachOFuzzer", support::sampleMachOFiles());
    const std::string declared =
        "\n<!DOCTYPE plist [<!ATTLIST plist version CDATA '1'>]><plist><array><integer>-0x1F"
        "</integer><real>1e-999</real><date>-0044-03-15T12:00:00Z</date></array></plist>";
    writeSeeds(argv[1], "PropertyListFuzzer",
               {platform::propertyListXML(list), declared, binaryPropertyList()});
}
