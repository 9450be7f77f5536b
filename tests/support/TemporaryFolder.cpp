#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace support {

TemporaryFolder::TemporaryFolder() {
    std::string pattern =
        std::filesystem::canonical(std::filesystem::temp_directory_path()) / "orvane-XXXXXX";
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    _path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

std::string TemporaryFolder::path(std::string_view name) const {
    return _path + "/" + std::string(name);
}

std::string TemporaryFolder::write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path file = path(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
}

std::string TemporaryFolder::makeFolder(std::string_view name) const {
    std::filesystem::create_directories(path(name));
    return path(name);
}

} // namespace support
