#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace support {

/// A new folder. The destructor deletes it and its contents.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
        : _path(std::filesystem::canonical(parent) / "orvane-XXXXXX") {
        EXPECT_NE(mkdtemp(_path.data()), nullptr);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// An absolute path without symbolic links.
    const std::string& path() const { return _path; }
    std::string path(std::string_view name) const { return _path + "/" + std::string(name); }

    /// Writes a file below the folder, creating missing folders, and returns its path.
    std::string write(std::string_view name, std::string_view bytes) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    /// Creates a folder below this one, with missing folders above it, and returns its path.
    std::string makeFolder(std::string_view name) const {
        std::filesystem::create_directories(path(name));
        return path(name);
    }

private:
    std::string _path;
};

} // namespace support
