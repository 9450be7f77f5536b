#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>

namespace support {

/// Sets a variable in this process's environment, or removes it if `value` is null. The destructor restores
/// what was there before.
class EnvironmentVariable {
public:
    EnvironmentVariable(std::string name, const std::optional<std::string>& value) : _name(std::move(name)) {
        const char* const before = getenv(_name.c_str());
        if (before)
            _before = before;
        set(value);
    }
    ~EnvironmentVariable() { set(_before); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        if (value)
            setenv(_name.c_str(), value->c_str(), 1);
        else
            unsetenv(_name.c_str());
    }

    const std::string _name;
    std::optional<std::string> _before;
};

} // namespace support
