#include "run/ServiceRequest.h"

#include "run/Console.h"
#include "run/VendorConfiguration.h"

namespace orvane {
namespace {

/// The same in every request and every run.
constexpr const char* developerToken = "a4c123b1612dd272d1371c17149d439536b3216f";

/// Nobody reads the service's answers; a server that goes on for ever must not keep the build waiting.
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

platform::URL serviceURL(const std::string& address) {
    auto url = platform::URL::parse(address);
    if (!url) {
        TWLLog("Failed to build URL %@", address);
        exitWithFailure();
    }
    return *std::move(url);
}

} // namespace orvane
