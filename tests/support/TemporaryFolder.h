#pragma once

#include <string>
#include <string_view>

namespace support {

/// A fresh folder that goes with everything in it when the object does.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Absolute and free of symbolic links.
    const std::string& path() const { return _path; }
    std::string path(std::string_view name) const;

    /// Writes a file below the folder, with the folders above it, and returns its path.
    std::string write(std::string_view name, std::string_view bytes) const;
    /// Makes a folder below this one, with the folders above it, and returns its path.
    std::string makeFolder(std::string_view name) const;

private:
    std::string _path;
};

} // namespace support
