#include "run/ServiceRequest.h"

#include "platform/urlloading/URLConnection.h"
#include "run/Console.h"
#include "run/VendorConfiguration.h"

namespace orvane {
namespace {

/// The same for all requests and runs.
constexpr const char* developerToken = "a4c123b1612dd272d1371c17149d439536b3216f";

/// The bodies of answers are not used. The limit keeps an endless answer from blocking the build.
constexpr std::uint64_t answerLimit = 1 << 20;

} // namespace

std::shared_ptr<TWLWebRequest> serviceRequest(const std::string& path, const Credentials& credentials) {
    auto request = TWLWebRequest::requestWithMethod("POST", path);
    request->setAnswerLimit(answerLimit);
    request->addValueForHTTPHeaderField(credentials.apiKey, "X-Tarnwhistle-API-Key");
    request->addValueForHTTPHeaderField(developerToken, "X-Tarnwhistle-Developer-Token");
    request->addValueForHTTPHeaderField(reverseDNS() + ".run", "X-Tarnwhistle-API-Client-Id");
    request->addValueForHTTPHeaderField("run/" + toolVersion(), "User-Agent");
    request->addValueForHTTPHeaderField(toolBuildVersion(), "X-Tarnwhistle-API-Client-Build-Version");
    request->addValueForHTTPHeaderField(toolVersion(), "X-Tarnwhistle-API-Client-Display-Version");
    return request;
}

std::optional<platform::Error> failureOf(const TWLWebResponse& response) {
    const auto& error = response.error();
    const bool isTooLong =
        error && error->domain == platform::urlErrorDomain &&
        error->code == static_cast<std::int64_t>(platform::URLErrorCode::dataLengthExceedsMaximum);
    return isTooLong ? std::nullopt : error;
}

platform::URL serviceURL(const std::string& address) {
    auto url = platform::URL::parse(address);
    if (!url) {
        TWLLog("Failed to build URL %@", address);
        exitWithFailure();
    }
    return *std::move(url);
}

} // namespace orvane
