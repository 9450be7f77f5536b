#pragma once

#include "MachO/TWLMachOSlice.h"
#include "platform/foundation/URL.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Called with a slice's UUID (32 lower-case hexadecimal digits, or nothing) and the name of its
/// architecture.
using TWLUUIDCallback =
    std::function<void(const std::optional<std::string>& uuid, const std::string& architecture)>;

/// The SHA-1 digest of the UTF-8 text up to its first NUL, as 40 lower-case hexadecimal digits.
std::string TWLHashNSString(std::string_view text);

/// A Mach-O file on disk, thin or universal, with its slices. A file that is no Mach-O file has one slice of
/// architecture "unknown". The file stays open and mapped as long as the object or one of its slices lives;
/// everything but the slices' section pointers was copied when the object was made, so a file that changes
/// or shrinks later does not change what the object says. Use it on one thread at a time.
class TWLMachOBinary {
public:
    /// Null, with nothing printed, when there is no regular file of at least 16 bytes that can be opened and
    /// mapped.
    static std::shared_ptr<TWLMachOBinary> initWithURL(const platform::URL& url);

    /// The same by path; a relative one is taken from the working directory.
    static std::shared_ptr<TWLMachOBinary> MachOBinaryWithPath(std::string_view path);

    /// TWLHashNSString.
    static std::string hashNSString(std::string_view text);

    const platform::URL& URL() const { return _url; }
    std::string path() const { return _url.path(); }

    /// In the order of the file; the first 65,536 at most.
    const std::vector<std::shared_ptr<TWLMachOSlice>>& slices() const { return _slices; }

    /// 40 lower-case hexadecimal digits that stand for the UUIDs and architectures of all slices, whatever
    /// their order in the file. Computed once. Throws std::logic_error when a slice has no UUID.
    const std::string& instanceIdentifier() const;

    /// Calls back once for each slice, in the order of the file.
    void enumerateUUIDs(const TWLUUIDCallback& callback) const;

    /// The first slice of that architecture, or null.
    std::shared_ptr<TWLMachOSlice> sliceForArchitecture(std::string_view architectureName) const;

private:
    explicit TWLMachOBinary(const platform::URL& url) : _url(url) {}
    bool open();

    platform::URL _url;
    std::shared_ptr<macho::TWLMachOFile> _file;
    std::vector<std::shared_ptr<TWLMachOSlice>> _slices;
    mutable std::optional<std::string> _instanceIdentifier;
};
