#pragma once

#include "support/Shell.h"
#include "support/TemporaryFolder.h"

#include <string>
#include <vector>

/// Objects, executables, universal files and a dSYM bundle, made by the llvm tools.
class RealFiles : public support::TemporaryFolder {
public:
    RealFiles() { support::outputOf(SOURCE_FOLDER "/scripts/make-mach-o-files " + path()); }

    std::vector<std::string> paths() const {
        return {path("arm64.o"),  path("x86_64.o"), path("armv7.o"),
                path("armv7s.o"), path("objects"),  path("arm64"),
                path("x86_64"),   path("app"),      path("app.dSYM/Contents/Resources/DWARF/app")};
    }
};
