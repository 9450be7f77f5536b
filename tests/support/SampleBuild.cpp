#include "support/SampleBuild.h"

#include <filesystem>
#include <regex>

namespace support {

SampleBuild::SampleBuild() : tool(ORVANE_RUN_UNDER_TEST) {
    const std::string products = _folder.makeFolder("Build/Products/Release-iphoneos");
    workingDirectory = _folder.makeFolder("Sample Project");
    _folder.makeFolder("Build/Products/Release-iphoneos/Sample App.app.dSYM/Contents/Resources/DWARF");
    environment = {
        {"HOME", _folder.makeFolder("home")},
        {"PATH", "/usr/bin:/bin"},
        {"XDG_DATA_DIRS", _folder.makeFolder("desktop")},
        {"XDG_DATA_HOME", _folder.makeFolder("home/.local/share")},
        {"ORVANE_TEST_API_ENDPOINT", nobodyListens},
        {"ORVANE_TEST_SYMBOLS_ENDPOINT", nobodyListens},
        {"SRCROOT", workingDirectory},
        {"PROJECT_FILE_PATH", workingDirectory + "/Sample.xcodeproj"},
        {"BUILT_PRODUCTS_DIR", products},
        {"INFOPLIST_PATH", "Sample App.app/Info.plist"},
        {"EXECUTABLE_PATH", "Sample App.app/Sample App"},
        {"DWARF_DSYM_FOLDER_PATH", products},
        {"DWARF_DSYM_FILE_NAME", "Sample App.app.dSYM"},
        {"WRAPPER_NAME", "Sample App.app"},
        {"PRODUCT_NAME", "Sample App"},
        {"PLATFORM_NAME", "iphoneos"},
        {"TARGETED_DEVICE_FAMILY", "1,2"},
        {"IPHONEOS_DEPLOYMENT_TARGET", "7.0"},
        {"CONFIGURATION", "Release"},
        {"SDKROOT", "/Xcode/iPhoneOS.sdk"},
        {"XCODE_VERSION_ACTUAL", "0511"},
    };
    writeInfoPlist("<key>CFBundleIdentifier</key><string>com.example.sample</string>"
                   "<key>CFBundleDisplayName</key><string>Sample</string>"
                   "<key>CFBundleVersion</key><string>17</string>"
                   "<key>CFBundleShortVersionString</key><string>1.2</string>");
}

std::string SampleBuild::infoPlistPath() const {
    return _folder.path("Build/Products/Release-iphoneos/Sample App.app/Info.plist");
}

std::string SampleBuild::dSYMPath() const {
    return _folder.path("Build/Products/Release-iphoneos/Sample App.app.dSYM");
}

void SampleBuild::writeInfoPlist(std::string_view members) const {
    _folder.write("Build/Products/Release-iphoneos/Sample App.app/Info.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
                      std::string(members) + "</dict></plist>\n");
}

Launch SampleBuild::launch() const {
    Launch launch;
    launch.arguments = {tool};
    launch.workingDirectory = workingDirectory;
    launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
    for (const auto& [name, value] : environment)
        launch.environment.push_back(std::string(name).append("=").append(value));
    return launch;
}

Launch SampleBuild::launchBelow(const std::vector<std::string>& parents) const {
    Launch launch = this->launch();
    for (auto name = parents.rbegin(); name != parents.rend(); ++name) {
        // The kernel names a process after its program's file: a shell under another name, which stays alive
        // because it has something left to do behind its child.
        const std::string program = _folder.path("parents/" + *name);
        std::filesystem::create_directories(_folder.path("parents"));
        std::filesystem::copy_file("/bin/sh", program, std::filesystem::copy_options::skip_existing);
        launch.arguments.insert(launch.arguments.begin(), {program, "-c", "\"$@\"; exit $?", "sh"});
    }
    return launch;
}

std::string messages(const std::string& standardError) {
    static const std::regex header("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} run\\[\\d+:\\d+\\] ");
    return std::regex_replace(standardError, header, "");
}

} // namespace support
