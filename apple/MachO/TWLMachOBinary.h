#pragma once

#include "MachO/TWLMachOSlice.h"
#include "platform/foundation/URL.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Receives a slice's UUID (32 lower-case hexadecimal digits, or null) and the name of its architecture.
using TWLUUIDCallback =
    std::function<void(const std::optional<std::string>& uuid, const std::string& architecture)>;

/// The SHA-1 digest of the UTF-8 text before its first NUL, as 40 lower-case hexadecimal digits.
std::string TWLHashNSString(std::string_view text);

/// A Mach-O file on disk, thin or universal, with its slices. A file that is not a Mach-O file has one slice
/// of the architecture "unknown". The file stays mapped as long as the object or one of its slices exists.
/// Everything except the slices' section pointers is copied when the object is made, so later changes of the
/// file have no effect. Not safe for concurrent use.
class TWLMachOBinary {
public:
    /// Null if `url` is not a regular file of at least 16 bytes that can be opened and mapped. Prints
    /// nothing.
    static std::shared_ptr<TWLMachOBinary> initWithURL(const platform::URL& url);

    /// The same for a path. A relative path starts at the working directory.
    static std::shared_ptr<TWLMachOBinary> MachOBinaryWithPath(std::string_view path);

    /// Same as TWLHashNSString.
    static std::string hashNSString(std::string_view text);

    const platform::URL& URL() const { return _url; }
    std::string path() const { return _url.path(); }

    /// The slices in the order of the file; at most 65,536.
    const std::vector<std::shared_ptr<TWLMachOSlice>>& slices() const { return _slices; }

    /// A digest of the UUIDs and architectures of all slices, independent of their order: 40 lower-case
    /// hexadecimal digits. Computed once. Throws std::logic_error if a slice has no UUID.
    const std::string& instanceIdentifier() const;

    /// Calls back once for each slice, in the order of the file.
    void enumerateUUIDs(const TWLUUIDCallback& callback) const;

    /// The first slice of this architecture; null if there is none.
    std::shared_ptr<TWLMachOSlice> sliceForArchitecture(std::string_view architectureName) const;

private:
    explicit TWLMachOBinary(const platform::URL& url) : _url(url) {}
    bool open();

    platform::URL _url;
    std::shared_ptr<macho::TWLMachOFile> _file;
    std::vector<std::shared_ptr<TWLMachOSlice>> _slices;
    mutable std::optional<std::string> _instanceIdentifier;
};
