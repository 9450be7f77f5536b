#include "platform/files/FileDescriptor.h"
#include "platform/files/Files.h"
#include "platform/foundation/URL.h"
#include "platform/propertylist/PropertyList.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>

// A replacement for the desktop companion app. It is opened with a hand-off URL, examines what the URL refers
// to, and appends a report for people and tests. It uploads nothing.

namespace {

using platform::Value;

std::string percentDecoded(const std::string& text) {
    const auto url = platform::URL::parse("x:" + text);
    return url ? url->path() : text;
}

/// The value of the pair `key` in the query; null if there is none.
std::optional<std::string> queryValue(const platform::URL& url, const std::string& key) {
    std::istringstream pairs(url.query().value_or(""));
    for (std::string pair; std::getline(pairs, pair, '&');)
        if (pair.starts_with(key + "="))
            return percentDecoded(pair.substr(key.size() + 1));
    return std::nullopt;
}

/// Describes the contents of a Build.plist. True if they are complete.
bool reportBuild(const std::string& path, std::ostream& report) {
    const auto build = platform::readDictionary(path);
    report << "Build.plist: " << path << (build ? "" : " cannot be read") << "\n";
    if (!build)
        return false;
    for (const char* key :
         {"CFBundleIdentifier", "CFBundleVersion", "PLATFORM_NAME", "TARNWHISTLE_RUN_VERSION"})
        if (const auto* value = platform::find<std::string>(*build, key))
            report << "  " << key << ": " << *value << "\n";
    const auto* dSYMs = platform::find<Value::Array>(*build, "dSYMs");
    bool complete = dSYMs != nullptr;
    for (const Value& dSYM : dSYMs ? *dSYMs : Value::Array()) {
        const auto* bundle = dSYM.as<std::string>();
        const bool present = bundle && platform::fileExists(*bundle);
        report << "  dSYM " << (present ? "present: " : "missing: ") << dSYM.description() << "\n";
        complete = complete && present;
    }
    return complete && platform::find<Value::Dictionary>(*build, "Runner_Environment_Dictionary");
}

bool reportOpening(const std::string& text, std::ostream& report) {
    report << "Opened: " << text << "\n";
    const auto url = platform::URL::parse(text);
    if (!url || url->scheme() != "tarnwhistle") {
        report << "  is not a hand-off URL\n";
        return false;
    }
    if (const auto path = queryValue(*url, "TARNWHISTLE_BUILD_PLIST_PATH"))
        return reportBuild(*path, report);
    const auto key = queryValue(*url, "TARNWHISTLE_API_KEY");
    report << "Legacy form, dSYM: " << queryValue(*url, "DWARF_DSYM_FILE_NAME").value_or("(none)") << "\n";
    return key.has_value();
}

/// One write, so that reports of several processes do not mix.
bool append(const std::string& path, const std::string& report) {
    const platform::FileDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    return file && ::write(file.get(), report.data(), report.size()) == static_cast<ssize_t>(report.size());
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: companion REPORT URL...\n";
        return 2;
    }
    std::ostringstream report;
    bool complete = argc > 2;
    for (int i = 2; i < argc; ++i)
        complete = reportOpening(argv[i], report) && complete;
    report << "Hand-off: " << (complete ? "complete" : "incomplete") << "\n\n";
    if (!append(argv[1], report.str()))
        return 1;
    return complete ? 0 : 1;
}
