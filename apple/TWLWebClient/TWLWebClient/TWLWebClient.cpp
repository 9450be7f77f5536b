#include "TWLWebClient/TWLWebClient.h"

#include "TWLWebClient/TWLWebClientTransaction.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Assert.h"
#include "platform/foundation/JSON.h"

#include <optional>

using platform::DispatchQueue;
using platform::Value;

namespace {

/// A callback that checks the status before it calls `completion`.
TWLWebCompletion expecting(std::uint64_t status, TWLWebCompletion completion) {
    return [status, completion = std::move(completion)](const std::shared_ptr<TWLWebResponse>& response) {
        if (!completion)
            return;
        if (!response->error() && response->statusCode() != status) {
            const auto code = static_cast<std::int64_t>(TWLWebClientError::unexpectedStatus);
            response->setError(platform::Error{std::string(TWLWebClientErrorDomain), code, {}});
        }
        completion(response);
    };
}

} // namespace

/// The client's state. Each step on the queue shares its ownership, so that an exchange can outlive the
/// client.
class TWLWebClient::Core : public std::enable_shared_from_this<Core> {
public:
    Core(platform::URL base, std::string prefix) : URL(std::move(base)), labelPrefix(std::move(prefix)) {}
    ~Core() {
        // If the last owner is a step on the queue, this runs on the queue and must not wait for it.
        if (!queue.isCurrent())
            queue.sync([this] { connections.clear(); });
    }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    std::shared_ptr<TWLWebClientTransaction> prepare(const std::shared_ptr<TWLWebRequest>& request) {
        if (!request->URL() && request->path())
            request->setURL(platform::URL::parse(*request->path(), URL));
        request->addHeaders(customHeaders);
        return *connections.insert(TWLWebClientTransaction::transactionWithRequest(request, labelPrefix))
                    .first;
    }

    void start(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion) {
        queue.async([self = shared_from_this(), request, completion] {
            const auto transaction = self->prepare(request);
            // The completion may use the client and block, so it runs on none of the client's queues.
            transaction->startWithCompletionHandler([self, transaction, completion](const auto& response) {
                DispatchQueue::global().async([self, transaction, completion, response] {
                    completion(response);
                    self->queue.async([self, transaction] { self->connections.erase(transaction); });
                });
            });
        });
    }

    /// Occupies the queue until the exchange ends, so that other calls of the client wait.
    void syncStart(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion) {
        queue.sync([&] {
            const auto transaction = prepare(request);
            transaction->syncStartWithCompletionHandler([&](const auto& response) {
                completion(response);
                connections.erase(transaction);
            });
        });
    }

    const platform::URL URL;
    const std::string labelPrefix;
    const DispatchQueue queue = DispatchQueue::serial(labelPrefix + ".rest-client");

    // Used on the queue only.
    std::set<std::shared_ptr<TWLWebClientTransaction>> connections;
    platform::HTTPHeaders customHeaders = {{"Accept", "application/json, application/x-plist"}};
};

TWLWebClient::TWLWebClient(platform::URL URL, std::string labelPrefix)
    : _core(std::make_shared<Core>(std::move(URL), std::move(labelPrefix))) {}

const platform::URL& TWLWebClient::URL() const {
    return _core->URL;
}

void TWLWebClient::addValueForHeader(std::string value, std::string header) {
    _core->queue.sync([&] { _core->customHeaders.insert_or_assign(std::move(header), std::move(value)); });
}

void TWLWebClient::startRequest(const std::shared_ptr<TWLWebRequest>& request,
                                const TWLWebCompletion& completion) {
    _core->start(request, completion);
}

void TWLWebClient::startRequest(const std::shared_ptr<TWLWebRequest>& request,
                                std::uint64_t expectingResponse, TWLWebCompletion completion) {
    _core->start(request, expecting(expectingResponse, std::move(completion)));
}

void TWLWebClient::syncStartRequest(const std::shared_ptr<TWLWebRequest>& request,
                                    const TWLWebCompletion& completion) {
    _core->syncStart(request, completion);
}

void TWLWebClient::syncStartRequest(const std::shared_ptr<TWLWebRequest>& request,
                                    std::uint64_t expectingResponse, TWLWebCompletion completion) {
    _core->syncStart(request, expecting(expectingResponse, std::move(completion)));
}

void TWLWebClient::getPath(const std::string& path, TWLWebCompletion completion) {
    if (auto URL = platform::URL::parse(path, _core->URL))
        return getURL(*std::move(URL), std::move(completion));
    // The path gives no URL. The exchange reports the error, as it reports every other failure.
    startRequest(TWLWebRequest::requestWithMethod("GET", path), completion);
}

void TWLWebClient::getURL(platform::URL URL, TWLWebCompletion completion) {
    _core->queue.async([core = _core, URL = std::move(URL), completion = std::move(completion)] {
        auto request = TWLWebRequest::requestWithMethod("GET", URL.relativePath());
        request->setURL(URL);
        core->start(request, completion);
    });
}

void TWLWebClient::postFormData(Value::Dictionary formData, std::string toPath, TWLWebCompletion completion) {
    _core->queue.async([core = _core, formData = std::move(formData), path = std::move(toPath),
                        completion = std::move(completion)] {
        auto request = TWLWebRequest::requestWithMethod("POST", path);
        request->setFormData(formData);
        core->start(request, completion);
    });
}

std::set<std::shared_ptr<TWLWebClientTransaction>> TWLWebClient::connections() const {
    std::set<std::shared_ptr<TWLWebClientTransaction>> result;
    _core->queue.sync([&] { result = _core->connections; });
    return result;
}

std::string TWLWebClient::escapeURLString(std::string_view string) {
    return platform::percentEscape(string);
}

Value TWLWebClient::decodeJSON(std::string_view bytes) {
    std::optional<Value> value = platform::parseJSON(bytes);
    // By default, Apple's parser accepts only an object or an array at the top.
    const bool isContainer = value && (value->as<Value::Dictionary>() || value->as<Value::Array>());
    return isContainer ? *std::move(value) : Value();
}

platform::Data TWLWebClient::encodeJSON(const Value&) {
    platform::assertionFailed("0 && \"encodeJSON: isn't implemented yet\"", "+[TWLWebClient encodeJSON:]",
                              "apple/TWLWebClient/TWLWebClient/TWLWebClient");
}
