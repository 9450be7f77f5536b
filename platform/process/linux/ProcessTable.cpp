#include "platform/process/ProcessTable.h"

#include "platform/files/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

namespace platform {
namespace {

/// Whether the system has no record for this caller. A lack of descriptors counts too: it can last for ever,
/// and callers repeat other failed calls until they succeed.
bool saysThatThereIsNoRecord(int errorNumber) {
    return errorNumber == ENOENT || errorNumber == ESRCH || errorNumber == EACCES || errorNumber == EPERM ||
           errorNumber == EMFILE || errorNumber == ENFILE;
}

/// Parses /proc/<id>/stat: "id (command name) state parent ..." (proc(5)). The name may contain blanks,
/// parentheses and line breaks; the fields after it do not.
ProcessRecord parseStat(std::uint32_t identifier, std::string_view line) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    ProcessRecord record;
    if (open == std::string_view::npos || close == std::string_view::npos || line.size() < close + 4)
        return record;
    record.identifier = identifier;
    record.commandName = line.substr(open + 1, close - open - 1);
    line.remove_prefix(close + 4);
    std::from_chars(line.data(), line.data() + line.size(), record.parentIdentifier);
    return record;
}

} // namespace

std::uint32_t ownProcessIdentifier() {
    return static_cast<std::uint32_t>(getpid());
}

std::optional<ProcessRecord> processRecord(std::uint32_t identifier) {
    const std::string path = "/proc/" + std::to_string(identifier) + "/stat";
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> line;
    const ssize_t size = file ? ::read(file.get(), line.data(), line.size()) : -1;
    if (size < 0)
        return saysThatThereIsNoRecord(errno) ? std::optional(ProcessRecord()) : std::nullopt;
    return parseStat(identifier, std::string_view(line.data(), static_cast<std::size_t>(size)));
}

} // namespace platform
