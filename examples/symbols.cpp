// symbols [--json] PATH...: what the symbols in a Mach-O file or dSYM bundle belong to, slice by slice. Of
// two paths it also says whether their UUIDs match: only a dSYM whose UUIDs do makes a crash report readable.
#include "MachO/TWLdSYM.h"
#include "platform/UTF8.h"

#include <iostream>
#include <set>

using Fields = std::vector<std::pair<std::string, std::optional<std::string>>>;

static std::string quoted(const std::optional<std::string>& text) {
    constexpr std::string_view special = "\"\\\n\t\r", letters = "\"\\ntr";
    std::string json;
    for (const char c : platform::textForXML(text.value_or("")))
        if (const std::size_t i = special.find(c); i != special.npos)
            (json += '\\') += letters[i];
        else
            json += c;
    return text ? '"' + json + '"' : "null";
}

static void print(const Fields& fields, bool asJSON, const std::string& indent) {
    for (const auto& [name, value] : fields)
        std::cout << indent << (asJSON ? quoted(name) : name) << ": "
                  << (asJSON ? quoted(value) + "," : value.value_or("none")) << "\n";
}

static void print(const TWLMachOSlice& slice, bool asJSON) {
    const auto minimum = slice.minimumOSVersion(), sdk = slice.linkedSDKVersion();
    const Fields fields = {{"architectureName", slice.architectureName()},
                           {"uuid", slice.uuid()},
                           {"minimumOSVersion", TWLMachOFormatVersion(&minimum)},
                           {"linkedSDKVersion", TWLMachOFormatVersion(&sdk)}};
    print(fields, asJSON, "    ");
    std::cout << (asJSON ? "    \"linkedDylibs\": [" : "    linkedDylibs:\n");
    const char* separator = "";
    for (const std::string& path : slice.linkedDylibs())
        std::cout << (asJSON ? std::exchange(separator, ", ") + quoted(path) : "      " + path + "\n");
    std::cout << (asJSON ? "]}" : "\n");
}

/// The slices' architectures with their UUIDs; nothing when the path cannot be read.
static std::set<std::string> show(const std::string& path, bool asJSON, const char* separator) {
    const auto dSYM = TWLdSYM::initWithURL(platform::URL::fileURLWithPath(path));
    const auto file =
        TWLMachOBinary::MachOBinaryWithPath(dSYM ? dSYM->executablePath().value_or(path) : path);
    if (!file || file->slices().empty() || file->slices()[0]->architectureName() == "unknown") {
        std::cerr << path << " cannot be read: it is no Mach-O file and no dSYM bundle that holds one.\n";
        return {};
    }
    Fields fields = {{"path", path}, {"kind", dSYM ? "dsym" : "mach-o"}};
    if (dSYM)
        fields.insert(fields.end(), {{"bundleIdentifier", dSYM->bundleIdentifier()},
                                     {"bundleVersion", dSYM->bundleVersion()},
                                     {"shortBundleVersion", dSYM->shortBundleVersion()}});
    std::cout << (asJSON ? separator : "");
    print(fields, asJSON, "");
    std::set<std::string> uuids;
    for (const auto& slice : file->slices()) {
        std::cout << (!asJSON ? "\n" : uuids.empty() ? "\"slices\": [{\n" : ", {\n");
        print(*slice, asJSON);
        uuids.insert(slice->architectureName() + " " + slice->uuid().value_or("without UUID in " + path));
    }
    std::cout << (asJSON ? "]}" : "");
    return uuids;
}

int main(int argc, char** argv) {
    std::vector<std::string> paths(argv + 1, argv + argc);
    const bool asJSON = std::erase(paths, "--json") > 0;
    std::vector<std::set<std::string>> shown;
    for (const std::string& path : paths)
        if (auto uuids = show(path, asJSON, shown.empty() ? "[{" : ", {"); !uuids.empty())
            shown.push_back(std::move(uuids));
    std::cout << (!asJSON ? "" : shown.empty() ? "[]\n" : "]\n");
    if (paths.size() == 2 && shown.size() == 2)
        (asJSON ? std::cerr : std::cout)
            << (shown[0] == shown[1] ? "The UUIDs match.\n" : "The UUIDs do not match.\n");
    return paths.empty() || shown.size() < paths.size();
}
