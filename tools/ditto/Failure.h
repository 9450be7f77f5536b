#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace ditto {

/// Why no archive was made, in words for the person who reads the build log. It ends the run.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    /// "cannot <operation> <path>: <the system's reason>"
    Failure(int errorNumber, const std::string& operation, const std::string& path)
        : Failure("cannot " + operation + " " + path + ": " + std::generic_category().message(errorNumber)) {}

    /// For a file that is no longer what it was when it was opened.
    static Failure changed(const std::string& path) {
        return Failure(path + " changed while it was being archived; archive it again");
    }
};

} // namespace ditto
