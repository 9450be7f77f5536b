#pragma once

#include "support/Shell.h"
#include "support/TemporaryFolder.h"

#include <string>
#include <vector>

/// Objects, executables, universal files and a dSYM bundle, made by clang, ld64.lld, llvm-lipo and dsymutil.
class RealFiles {
public:
    RealFiles() {
        _folder.write("app.c", "int shop(int x) { return x + 1; }\nint main(void) { return shop(1); }\n");
        _folder.write("System.tbd", "--- !tapi-tbd\ntbd-version: 4\n"
                                    "targets: [ arm64-ios, x86_64-macos ]\n"
                                    "install-name: '/usr/lib/libSystem.B.dylib'\nexports:\n"
                                    "  - targets: [ arm64-ios, x86_64-macos ]\n"
                                    "    symbols: [ dyld_stub_binder ]\n...\n");
        // dsymutil calls "lipo" for universal files.
        support::outputOf(
            "cd " + _folder.path() +
            " && mkdir bin && ln -s " LIPO " bin/lipo && "
            "for target in arm64-apple-ios9.0 x86_64-apple-macos10.9 armv7-apple-ios7.0 armv7s-apple-ios7.0; do " CLANG
            " --target=$target -g -c app.c -o ${target%%-*}.o || exit 1; done && " LD64
            " -arch arm64 -platform_version ios 9.0 9.3 -o arm64 arm64.o System.tbd && " LD64
            " -arch x86_64 -platform_version macos 10.9 10.13.6 -o x86_64 x86_64.o System.tbd && " LIPO
            " -create arm64 x86_64 -output app && " LIPO
            " -create armv7.o armv7s.o arm64.o x86_64.o -output objects && "
            "PATH=$PWD/bin:$PATH " DSYMUTIL " app -o app.dSYM");
    }

    std::string app() const { return _folder.path("app"); }
    std::string dSYM() const { return _folder.path("app.dSYM"); }

    std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        for (const char* name : {"arm64.o", "x86_64.o", "armv7.o", "armv7s.o", "arm64", "x86_64", "app",
                                 "objects", "app.dSYM/Contents/Resources/DWARF/app"})
            paths.push_back(_folder.path(name));
        return paths;
    }

private:
    support::TemporaryFolder _folder;
};
