#include "run/RunFlow.h"

#include "platform/files/AtomicWrite.h"
#include "platform/files/Files.h"
#include "platform/foundation/Path.h"
#include "platform/foundation/UTF8.h"
#include "platform/foundation/UUID.h"
#include "platform/propertylist/PropertyList.h"
#include "platform/propertylist/UserDefaults.h"
#include "run/BuildChecks.h"
#include "run/BuildRegistration.h"
#include "run/Console.h"
#include "run/DSYMCache.h"
#include "run/DeploymentTarget.h"
#include "run/FrameworkProbes.h"
#include "run/HandOff.h"
#include "run/HostDetection.h"
#include "run/SymbolUpload.h"
#include "run/VendorConfiguration.h"

#include <cstdlib>
#include <string_view>

namespace orvane {
namespace {

constexpr std::size_t apiKeyCharacters = 40;
constexpr std::size_t buildSecretBytes = 64;
constexpr unsigned ownerOnly = 0600;

void readDebugDefault(int argc, const char* const* argv) {
    const auto debug = platform::userDefault("debug", {argv + 1, argv + argc}, reverseDNS() + ".run");
    if (debug && platform::booleanValue(*debug))
        setDebugMode();
}

[[noreturn]] void failWithConfigurationIssue(const std::string& problem) {
    failWithTitleAndReason("Configuration Issue",
                           problem + " Your Orvane run script build phase should contain your API key:\n"
                                     "./Orvane.framework/run YOUR_API_KEY YOUR_BUILD_SECRET\n\n");
}

/// The API key. Ends the process if it is not UTF-8 or does not have the length of a key.
std::string verifiedAPIKey(std::string_view argument) {
    const auto apiKey = platform::decodeUTF8(argument);
    if (!apiKey || platform::characterCount(*apiKey) != apiKeyCharacters)
        failWithConfigurationIssue("Orvnae API key not valid."); // people search the web for this spelling
    return *apiKey;
}

/// The second argument; empty if it does not have the length of a secret, as for example "-debug".
std::string buildSecret(int argc, const char* const* argv) {
    if (argc < 3 || std::string_view(argv[2]).size() != buildSecretBytes)
        return "";
    return platform::decodeUTF8(argv[2]).value_or("");
}

void writeArtifact(const BuildSettings& buildSettings, const std::string& apiKey) {
    if (!platform::booleanValue(setting(buildSettings, "TARNWHISTLE_CREATE_ARTIFACT").value_or("")))
        return;
    const std::string defaultPath = platform::pathByAppending(
        setting(buildSettings, "BUILT_PRODUCTS_DIR").value_or(""), "tarnwhistle.plist");
    const std::string path = setting(buildSettings, "TARNWHISTLE_ARTIFACT_PATH").value_or(defaultPath);
    const platform::Value artifact = platform::Value::Dictionary{{"TarnwhistleAPIKey", apiKey}};
    if (!platform::writeFileAtomically(path, platform::propertyListXML(artifact)))
        TWLLog("Failed to write data to artifact path %@\n\n", path);
}

/// Creates a folder for this build's dSYMs and description.
std::string makeBuildFolder(const std::string& apiEndpoint) {
    std::string path = platform::pathByAppending(cacheDirectory(apiEndpoint), platform::makeUUIDString());
    if (const auto created = platform::createDirectories(path); !created) {
        NSLog("Unable to create directory at path %@ \n%@", path, created.error());
        exitWithFailure();
    }
    return path;
}

void takeCompanionRoad(const BuildSettings& buildSettings, const std::string& apiKey,
                       const std::string& apiEndpoint) {
    const std::string buildFolder = makeBuildFolder(apiEndpoint);
    const auto dSYMs =
        cacheDSYMsAtPath(setting(buildSettings, "BUILT_PRODUCTS_DIR").value_or(""), buildFolder);
    const platform::Value::Dictionary description = buildDescription(buildSettings, apiKey, dSYMs);
    HandOff handOff = {.apiKey = apiKey, .buildPlistPath = std::nullopt};
    if (isTarnwhistleBuildPlistCompatible()) {
        handOff.buildPlistPath = platform::pathByAppending(buildFolder, "Build.plist");
        // A failure is ignored, because the companion app reports a missing file. Only the owner has access
        // to the file: it contains the environment, which can contain secrets.
        static_cast<void>(platform::writeFileAtomically(*handOff.buildPlistPath,
                                                        platform::propertyListXML(description), ownerOnly));
    }
    sendDataToMacApp(handOff, buildSettings);
}

/// Returns the exit status. A failed registration does not prevent the upload, which is tried twice.
int takeDirectRoad(const BuildSettings& buildSettings, const std::shared_ptr<TWLMachOBinary>& executable,
                   const Credentials& credentials) {
    buildConfigure(buildSettings, credentials, /*isBuildServer=*/true, /*isFinalAttempt=*/true);
    const bool uploaded = uploadDSYM(buildSettings, executable, credentials, /*isFinalAttempt=*/false) ||
                          uploadDSYM(buildSettings, executable, credentials, /*isFinalAttempt=*/true);
    return uploaded ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int run(int argc, const char* const* argv, const char* const* environment) {
    NSLog("Orvane.framework/run %@", toolVersion());
    if (argc < 2)
        failWithConfigurationIssue("Orvane API key not set.");
    readDebugDefault(argc, argv);
    const Credentials credentials = {.apiKey = verifiedAPIKey(argv[1]),
                                     .buildSecret = buildSecret(argc, argv)};
    const BuildSettings buildSettings = buildSettingsFromEnvironment(environment);
    const std::string apiEndpoint = endpoint(buildSettings);

    // Each check assumes that the ones before it have passed.
    verifyEnvironmentIsValid(buildSettings);
    computePathToFramework(buildSettings);
    const auto executable = checkDeploymentTarget(buildSettings);
    writeArtifact(buildSettings, credentials.apiKey);

    // A machine of Xcode Bots can have the companion app and Xcode too, but nobody sits there to use the app.
    if (isBotsDaemonInProcessHierarchy() || (!isTarnwhistleInstalled() && !isXcodeInProcessHierarchy()))
        return takeDirectRoad(buildSettings, executable, credentials);
    takeCompanionRoad(buildSettings, credentials.apiKey, apiEndpoint);
    return EXIT_SUCCESS;
}

} // namespace orvane
