#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace ditto {

/// Why no archive was made, as a message for the build log. Ends the program.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    /// "cannot <operation> <path>: <the system's reason>"
    Failure(int errorNumber, const std::string& operation, const std::string& path)
        : Failure("cannot " + operation + " " + path + ": " + std::generic_category().message(errorNumber)) {}

    /// The failure for a file that changed after it was opened.
    static Failure changed(const std::string& path) {
        return Failure(path + " changed while it was being archived; archive it again");
    }
};

} // namespace ditto
