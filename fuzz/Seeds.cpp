#include "fuzz/MachOImage.h"
#include "platform/Files.h"
#include "platform/PropertyList.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// Writes each seed to a file of its own below "<folder>/<target>".
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
    writeSeeds(argv[1], "MachOFuzzer", fuzz::sampleMachOFiles());
    writeSeeds(argv[1], "PropertyListFuzzer", {platform::propertyListXML(list)});
}
