#include "platform/launchservices/linux/KeyFile.h"

#include "platform/files/Files.h"
#include "platform/foundation/ASCII.h"
#include "platform/foundation/Path.h"

namespace platform {
namespace {

/// The files of a desktop with all applications of a distribution are far smaller. The limit for values also
/// limits the length of a command, because each field code inserts a value.
constexpr std::size_t fileSizeLimit = 4 << 20, valueSizeLimit = 16 << 10;

} // namespace

Data readKeyFile(const std::string& path) {
    const Result<Data> file = readFile(path, fileSizeLimit);
    return file && !hasZeroByte(file->bytes()) ? *file : Data();
}

std::string_view keyFileValue(const Data& file, std::string_view group, std::string_view key) {
    constexpr std::string_view blanks = " \t\r", byteOrderMark = "\xEF\xBB\xBF";
    if (file.bytes().find(key) == std::string_view::npos) // avoids the line-by-line search of a large cache
        return "";
    const std::string header = std::string("[").append(group).append("]");
    std::string_view rest = file.bytes(), value;
    if (rest.starts_with(byteOrderMark))
        rest.remove_prefix(byteOrderMark.size());
    for (bool inGroup = false; !rest.empty();) {
        const std::string_view whole = rest.substr(0, rest.find('\n')), line = trimmed(whole, blanks);
        rest.remove_prefix(std::min(whole.size() + 1, rest.size()));
        if (line.starts_with('[')) {
            inGroup = line == header;
        } else if (inGroup && line.starts_with(key)) {
            // A key that only begins with `key`, such as "Name[de]".
            const std::string_view assignment = trimmed(line.substr(key.size()), blanks);
            if (assignment.starts_with('='))
                value = trimmed(assignment.substr(1), blanks);
        }
    }
    return value.size() <= valueSizeLimit ? value : "";
}

} // namespace platform
