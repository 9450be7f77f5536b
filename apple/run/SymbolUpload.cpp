#include "run/SymbolUpload.h"

#include "Categories/NSTask+Convenience.h"
#include "TWLWebClient/TWLWebClient.h"
#include "platform/files/Files.h"
#include "platform/files/UnfinishedFile.h"
#include "platform/foundation/UTF8.h"
#include "platform/foundation/UUID.h"
#include "platform/process/Archiver.h"
#include "run/BuildChecks.h"
#include "run/BuildRegistration.h"
#include "run/Console.h"
#include "run/FrameworkProbes.h"
#include "run/VendorConfiguration.h"

namespace orvane {
namespace {

void addProjectFields(TWLWebRequest& request, const platform::Value::Dictionary& infoPlist,
                      const BuildSettings& buildSettings) {
    using platform::objectForKey;
    request.addValueForFormField(objectForKey(infoPlist, "CFBundleIdentifier"), "project[identifier]");
    // Each version is in the field named after the other: the service reads the build number from
    // "display_version" and the version that users see from "build_version".
    request.addValueForFormField(objectForKey(infoPlist, "CFBundleVersion"), "project[display_version]");
    request.addValueForFormField(objectForKey(infoPlist, "CFBundleShortVersionString"),
                                 "project[build_version]");
    // The environment may contain any bytes, but the form must be UTF-8.
    const auto configuration = setting(buildSettings, "CONFIGURATION");
    request.addValueForFormField(configuration ? std::optional(platform::validUTF8(*configuration))
                                               : std::nullopt,
                                 "code_mapping[build_configuration]");
    request.addValueForFormField("dsym", "code_mapping[type]");
    request.addValueForFormField(toolBuildVersion(), "com_tarnwhistle_run_version");
}

/// Adds two fields for each slice. Returns a summary for messages.
std::string addSliceFields(TWLWebRequest& request, const std::shared_ptr<TWLMachOBinary>& executable) {
    std::string summary;
    if (!executable)
        return summary;
    executable->enumerateUUIDs([&](const std::optional<std::string>& uuid, const std::string& architecture) {
        if (!uuid) {
            TWLLog("Unable to extract uuid-architecture pairs from binary %@", executable->path());
            return;
        }
        summary += platform::format("UUID:%@ Slice:%@\n", *uuid, architecture);
        request.addValueForFormField(*uuid, "code_mapping[executables][][identifier]");
        request.addValueForFormField(architecture, "code_mapping[executables][][arch]");
    });
    return summary;
}

/// Zips `dSYMPath` to `archivePath`. Logs and ends the process if that fails.
void archive(const std::string& dSYMPath, const std::string& archivePath, const std::string& dSYMName) {
    const std::string archiver = platform::archiverPath(toolBundlePath());
    if (!platform::fileExists(archiver)) {
        TWLLog("ditto tool unavailable at path %@\n\n", archiver);
        exitWithFailure();
    }
    const auto check = [&](const platform::Data& stderrData, const platform::Data&, std::int32_t status) {
        if (status == 0)
            return;
        TWLLog("%@ ended with status %i\n%@", archiver, status, platform::validUTF8(stderrData.bytes()));
        TWLLog("Compression of %@ failed, unable to upload.\n\n", dSYMName);
        exitWithFailure();
    };
    NSTask::launchWithPath(archiver, {}, {{"-c", "-k", "--keepParent", dSYMPath, archivePath}}, check);
}

/// Maps the archive, because a copy would take as much memory as the archive has bytes.
platform::Data readArchive(const std::string& archivePath, const std::string& dSYMPath) {
    auto bytes = platform::mapFile(archivePath);
    if (bytes)
        return *std::move(bytes);
    TWLLog("%@", bytes.error());
    failWithTitleAndReason("Failed to Load File", platform::format("%@ data could not be loaded", dSYMPath));
}

void deleteArchive(const std::string& archivePath) {
    if (const auto deleted = platform::removeFile(archivePath); !deleted)
        TWLLog("Could not delete zipped dSYM at path %@ %@", archivePath, deleted.error());
}

/// Services may accept an upload with any of these codes, 300 included. A registration is accepted with 200
/// and 201 only.
bool isAccepted(std::uint64_t statusCode) {
    return statusCode >= 200 && statusCode <= 300;
}

void logOutcome(const TWLWebResponse& response, const std::string& dSYMName, const std::string& summary,
                bool isFinalAttempt) {
    const auto status = static_cast<std::int32_t>(response.statusCode());
    const auto failure = failureOf(response);
    if (isAccepted(response.statusCode()))
        TWLLog("%@ uploaded statusCode %i\n%@", dSYMName, status, summary);
    else if (isFinalAttempt && failure)
        TWLLog("%@ could not be uploaded statusCode %i %@\n%@", dSYMName, status, *failure, summary);
    else if (isFinalAttempt)
        TWLLog("%@ could not be uploaded statusCode %i\n%@", dSYMName, status, summary);
}

} // namespace

bool uploadDSYM(const BuildSettings& buildSettings, const std::shared_ptr<TWLMachOBinary>& executable,
                const Credentials& credentials, bool isFinalAttempt) {
    const platform::Value::Dictionary infoPlist = infoPlistDictionary(buildSettings);
    TWLWebClient client(serviceURL(symbolsEndpoint()), reverseDNS());
    const auto request = serviceRequest(
        platform::format("/api/v3/platforms/%@/code_mappings", getAppPlatform(buildSettings)), credentials);
    addProjectFields(*request, infoPlist, buildSettings);
    const std::string summary = addSliceFields(*request, executable);

    const std::string dSYMName = setting(buildSettings, "DWARF_DSYM_FILE_NAME").value_or("");
    const std::string dSYMPath = appDSYMPath(buildSettings);
    const std::string archiveName = platform::globallyUniqueString() + ".zip";
    const std::string archivePath =
        setting(buildSettings, "DWARF_DSYM_FOLDER_PATH").value_or("") + "/" + archiveName;
    const platform::UnfinishedFile unfinished(archivePath); // a cancelled build leaves no archive
    archive(dSYMPath, archivePath, dSYMName);
    request->addData(readArchive(archivePath, dSYMPath), "application/zip", archiveName,
                     "code_mapping[file]");
    logDebug("Uploading dSYM at path %@", dSYMPath);

    bool accepted = false;
    client.syncStartRequest(request, [&](const std::shared_ptr<TWLWebResponse>& response) {
        deleteArchive(archivePath);
        logOutcome(*response, dSYMName, summary, isFinalAttempt);
        accepted = isAccepted(response->statusCode());
    });
    return accepted;
}

} // namespace orvane
