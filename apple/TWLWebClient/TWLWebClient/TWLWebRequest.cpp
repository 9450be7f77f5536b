#include "TWLWebClient/TWLWebRequest.h"

#include "platform/foundation/Assert.h"
#include "platform/foundation/Format.h"

using platform::Data;
using platform::format;
using platform::Value;

namespace {

constexpr const char* sourceFile = "apple/TWLWebClient/TWLWebClient/TWLWebRequest";

} // namespace

std::shared_ptr<TWLWebRequest> TWLWebRequest::requestWithMethod(std::optional<std::string> method,
                                                                std::optional<std::string> path) {
    auto request = std::make_shared<TWLWebRequest>(std::move(method));
    PLATFORM_ASSERT(path, "path", "+[TWLWebRequest requestWithMethod:path:]", sourceFile);
    request->setPath(std::move(path));
    return request;
}

TWLWebRequest::TWLWebRequest(std::optional<std::string> method) {
    PLATFORM_ASSERT(method, "method", "-[TWLWebRequest initWithMethod:]", sourceFile);
    _method = *std::move(method);
}

void TWLWebRequest::addValueForHTTPHeaderField(std::string value, std::string field) {
    _customHeaders.insert_or_assign(std::move(field), std::move(value));
}

void TWLWebRequest::addHeaders(const platform::HTTPHeaders& headers) {
    _customHeaders.insert(headers.begin(), headers.end());
}

void TWLWebRequest::addFormRecord(FormRecord record) {
    if (!_formFields)
        _formFields.emplace();
    _formFields->push_back(std::move(record));
}

void TWLWebRequest::addValueForFormField(Value value, std::optional<std::string> field) {
    addFormRecord(FormRecord::upToFirstNull(
        {.value = std::move(value), .field = std::move(field), .MIMEType = "text/plain", .fileName = {}}));
}

void TWLWebRequest::addData(std::optional<Data> data, std::optional<std::string> MIMEType,
                            std::optional<std::string> fileName, std::optional<std::string> formField) {
    addFormRecord(FormRecord::upToFirstNull({.value = data ? Value(*std::move(data)) : Value(),
                                             .field = std::move(formField),
                                             .MIMEType = std::move(MIMEType),
                                             .fileName = std::move(fileName)}));
}

void TWLWebRequest::addValueForFormFromDict(const Value::Dictionary& dictionary,
                                            const std::string& withPrefix) {
    for (const auto& [key, value] : dictionary)
        addValueForFormField(value, format("%@[%@]", withPrefix, key));
}

void TWLWebRequest::setFormData(const Value::Dictionary& dictionary) {
    for (const auto& [key, value] : dictionary)
        addValueForFormField(value, key);
}

std::optional<platform::URL> TWLWebRequest::fullURL() const {
    if (!_url || !_parameters || _parameters->empty())
        return _url;
    std::string text = _url->absoluteString() + "?";
    for (const auto& [key, value] : *_parameters)
        text += format("%@=%@&", platform::percentEscape(key), platform::percentEscape(value));
    text.pop_back(); // the last "&"
    return platform::URL::parse(text);
}

std::shared_ptr<platform::URLRequest> TWLWebRequest::URLRequest() {
    auto request = std::make_shared<platform::URLRequest>();
    request->url = fullURL();
    request->cachePolicy = platform::URLRequestCachePolicy::reloadIgnoringLocalCacheData;
    request->answerLimit = _answerLimit;
    request->method = _method;
    request->body = formData(); // sets a header, so the headers follow
    for (const auto& [field, value] : _customHeaders)
        request->appendValueForHTTPHeaderField(value, field);
    return request;
}

std::optional<platform::HTTPBody> TWLWebRequest::formData() {
    if (!_formFields || _formFields->empty())
        return std::nullopt;
    MultipartBody body(*_formFields);
    addValueForHTTPHeaderField(std::move(body.contentType), "Content-Type");
    return std::move(body.bytes);
}
