#include "platform/process/ProcessTable.h"

#include "platform/files/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

namespace platform {
namespace {

/// A descriptor that is open from the start of the program and is closed when no other descriptor is free.
class Reserve {
public:
    Reserve() { keep(); }

    /// Calls `step` while one more descriptor is free. Another thread may take it first.
    template <class Step>
    auto lendTo(Step step) {
        const std::lock_guard lock(_mutex);
        _descriptor.reset();
        auto result = step();
        keep();
        return result;
    }

private:
    void keep() { _descriptor = aboveStandardStreams(::open("/", O_PATH | O_CLOEXEC)); }

    std::mutex _mutex;
    FileDescriptor _descriptor;
};

/// Never destroyed, because any thread may use it until the process ends. Not on the heap, because an
/// allocation failure before main could not be reported.
Reserve& reserve() {
    alignas(Reserve) static std::array<std::byte, sizeof(Reserve)> memory;
    static auto* const instance = new (memory.data()) Reserve;
    return *instance;
}

[[maybe_unused]] const Reserve& openedBeforeMain = reserve();

bool saysThatThereIsNoRecord(int errorNumber) {
    return errorNumber == ENOENT || errorNumber == ESRCH || errorNumber == EACCES || errorNumber == EPERM;
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

std::optional<ProcessRecord> readRecord(std::uint32_t identifier) {
    const std::string path = "/proc/" + std::to_string(identifier) + "/stat";
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> line;
    const ssize_t size = file ? ::read(file.get(), line.data(), line.size()) : -1;
    if (size < 0)
        return saysThatThereIsNoRecord(errno) ? std::optional(ProcessRecord()) : std::nullopt;
    return parseStat(identifier, std::string_view(line.data(), static_cast<std::size_t>(size)));
}

} // namespace

std::uint32_t ownProcessIdentifier() {
    return static_cast<std::uint32_t>(getpid());
}

std::optional<ProcessRecord> processRecord(std::uint32_t identifier) {
    auto record = readRecord(identifier);
    if (record || (errno != EMFILE && errno != ENFILE))
        return record;
    return reserve().lendTo([=] { return readRecord(identifier); });
}

} // namespace platform
