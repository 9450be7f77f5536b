#include "run/BuildRegistration.h"

#include "TWLWebClient/TWLWebClient.h"
#include "platform/foundation/ASCII.h"
#include "run/BuildChecks.h"
#include "run/Console.h"
#include "run/VendorConfiguration.h"

namespace orvane {

static void logFailure(const TWLWebResponse& response) {
    const auto status = static_cast<std::int32_t>(response.statusCode());
    if (const auto failure = failureOf(response))
        TWLLog("Could not be onboarded statusCode %i %@", status, *failure);
    else
        TWLLog("Could not be onboarded statusCode %i", status);
}

bool buildConfigure(const BuildSettings& buildSettings, const Credentials& credentials, bool isBuildServer,
                    bool isFinalAttempt) {
    const platform::Value::Dictionary infoPlist = infoPlistDictionary(buildSettings);
    TWLWebClient client(serviceURL(defaultAPIEndpoint()), reverseDNS());
    const auto request =
        serviceRequest(platform::format("/spi/v1/platforms/%@/apps/%@/built", getAppPlatform(buildSettings),
                                        platform::objectForKey(infoPlist, "CFBundleIdentifier")),
                       credentials);
    request->addValueForFormField(platform::objectForKey(infoPlist, "CFBundleDisplayName"), "app_name");
    request->addValueForFormField(isBuildServer ? "build server" : "", "tool_details");
    if (!credentials.buildSecret.empty())
        request->addValueForHTTPHeaderField(credentials.buildSecret, "X-Tarnwhistle-Build-Secret");

    bool accepted = false;
    client.syncStartRequest(request, [&](const std::shared_ptr<TWLWebResponse>& response) {
        accepted = response->statusCode() == 201 || response->statusCode() == 200;
        if (accepted)
            return;
        if (isFinalAttempt)
            logFailure(*response);
        else
            // The result of the second attempt is not returned: the caller uploads in any case.
            buildConfigure(buildSettings, credentials, isBuildServer, /*isFinalAttempt=*/true);
    });
    return accepted;
}

std::string getAppPlatform(const BuildSettings& buildSettings) {
    const std::string name = setting(buildSettings, "PLATFORM_NAME").value_or("");
    if (name.empty()) {
        TWLLog("Failure determining project platform.");
        exitWithFailure();
    }
    if (platform::equalIgnoringCase(name, "macosx"))
        return "mac";
    const bool isIOS =
        platform::equalIgnoringCase(name, "iphoneos") || platform::equalIgnoringCase(name, "iphonesimulator");
    return isIOS ? "ios" : "unknown";
}

} // namespace orvane
