// symbols [--json] PATH...: prints the slices and UUIDs of Mach-O files and dSYM bundles. For two paths it
// also reports whether their UUIDs match: the function names for a crash report are in the dSYM that has the
// UUID of the program.
#include "MachO/TWLdSYM.h"
#include "platform/foundation/UTF8.h"

#include <iostream>
#include <set>

static std::string quoted(const std::optional<std::string>& text) {
    constexpr std::string_view special = "\"\\\n\t\r", letters = "\"\\ntr";
    std::string json;
    for (const char c : platform::textForXML(text.value_or(""))) {
        const std::size_t i = special.find(c);
        json += i == special.npos ? std::string(1, c) : std::string{'\\', letters[i]};
    }
    return text ? '"' + json + '"' : "null";
}

static void print(bool json, const std::vector<std::pair<const char*, std::optional<std::string>>>& fields) {
    for (const auto& [name, value] : fields)
        std::cout << (json ? quoted(name) : name) << ": " << (json ? quoted(value) : value.value_or("none"))
                  << (json ? ",\n" : "\n");
}

static void print(bool json, const TWLMachOSlice& slice) {
    const auto minimum = slice.minimumOSVersion(), sdk = slice.linkedSDKVersion();
    print(json, {{"architectureName", slice.architectureName()},
                 {"uuid", slice.uuid()},
                 {"minimumOSVersion", TWLMachOFormatVersion(&minimum)},
                 {"linkedSDKVersion", TWLMachOFormatVersion(&sdk)}});
    std::string dylibs;
    for (const std::string& path : slice.linkedDylibs())
        dylibs += json ? (dylibs.empty() ? "" : ", ") + quoted(path) : "\n  " + path;
    std::cout << (json ? "\"linkedDylibs\": [" + dylibs + "]}" : "linkedDylibs:" + dylibs + "\n");
}

/// Prints the slices and returns their architectures and UUIDs; empty if the path cannot be read.
static std::set<std::string> show(const std::string& path, bool json, const char* separator) {
    const auto dSYM = TWLdSYM::initWithURL(platform::URL::fileURLWithPath(path));
    const auto file =
        TWLMachOBinary::MachOBinaryWithPath(dSYM ? dSYM->executablePath().value_or(path) : path);
    const auto slices = file ? file->slices() : std::vector<std::shared_ptr<TWLMachOSlice>>();
    if (slices.empty() || (slices.size() == 1 && slices[0]->architectureName() == "unknown")) {
        std::cerr << path << " cannot be read: it is not a Mach-O file or a dSYM bundle that contains one.\n";
        return {};
    }
    std::cout << (json ? separator : "");
    print(json, {{"path", path}, {"kind", dSYM ? "dsym" : "mach-o"}});
    if (dSYM)
        print(json, {{"bundleIdentifier", dSYM->bundleIdentifier()},
                     {"bundleVersion", dSYM->bundleVersion()},
                     {"shortBundleVersion", dSYM->shortBundleVersion()}});
    std::set<std::string> uuids;
    for (const auto& slice : slices) {
        const char* const opening = uuids.empty() ? "\"slices\": [{\n" : ", {\n";
        std::cout << (json ? opening : "\n");
        print(json, *slice);
        uuids.insert(slice->architectureName() + " " + slice->uuid().value_or("without UUID in " + path));
    }
    std::cout << (json ? "]}" : "\n");
    return uuids;
}

int main(int argc, char** argv) {
    std::vector<std::string> paths(argv + 1, argv + argc);
    const bool json = std::erase(paths, "--json") > 0;
    std::vector<std::set<std::string>> shown;
    std::cerr << (paths.empty() ? "usage: symbols [--json] PATH...\n" : "");
    for (const std::string& path : paths)
        if (const auto uuids = show(path, json, shown.empty() ? "[{" : ", {"); !uuids.empty())
            shown.push_back(uuids);
    if (json)
        std::cout << (shown.empty() ? "[]\n" : "]\n");
    if (paths.size() == 2 && shown.size() == 2) {
        shown[0].merge(shown[1]); // the common elements remain in the second set
        const char* rest = shown[1].empty() ? "UUIDs do not match.\n" : "Only some UUIDs match.\n";
        (json ? std::cerr : std::cout) << (shown[0].size() == shown[1].size() ? "UUIDs match.\n" : rest);
    }
    std::cerr << (std::cout.flush() ? "" : "The output could not be written.\n");
    return !std::cout || paths.empty() || shown.size() < paths.size();
}
