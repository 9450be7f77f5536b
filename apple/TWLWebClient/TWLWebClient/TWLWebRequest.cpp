#include "TWLWebClient/TWLWebRequest.h"

#include "platform/foundation/Assert.h"
#include "platform/foundation/Format.h"

using platform::Data;
using platform::format;
using platform::objectForKey;
using platform::Value;

namespace {

constexpr const char* sourceFile = "apple/TWLWebClient/TWLWebClient/TWLWebRequest";

// A fixed text; the values are not searched for it.
constexpr const char* boundary = "AaB03x";

/// A dictionary of the members before the first null value.
Value::Dictionary recordOf(std::initializer_list<std::pair<const char*, Value>> members) {
    Value::Dictionary record;
    for (const auto& [key, value] : members) {
        if (value.isNull())
            break;
        record.emplace(key, value);
    }
    return record;
}

std::string filePartHead(const Value::Dictionary& record) {
    std::string head = format("--%@\r\nContent-Disposition: form-data; name=\"%@\"; filename=\"%@\"\r\n",
                              boundary, objectForKey(record, "field"), objectForKey(record, "filename"));
    // A record that ends before its type has unknown bytes (RFC 7578 section 4.4).
    const Value type = objectForKey(record, "mime-type");
    if (type.isNull())
        return head + "Content-Type: application/octet-stream\r\n\r\n";
    return head + format("Content-Type: %@\r\n", type) + "Content-Transfer-Encoding: binary\r\n\r\n";
}

std::string textPart(const Value::Dictionary& record, const std::string& value) {
    return format("--%@\r\nContent-Disposition: form-data; name=\"%@\"\r\n", boundary,
                  objectForKey(record, "field")) +
           "Content-Type: text/plain\r\n\r\n" + format("%@\r\n", value);
}

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
    addFormRecord(recordOf({{"value", std::move(value)}, {"field", field}, {"mime-type", "text/plain"}}));
}

void TWLWebRequest::addData(std::optional<Data> data, std::optional<std::string> MIMEType,
                            std::optional<std::string> fileName, std::optional<std::string> formField) {
    addFormRecord(recordOf({{"value", data ? Value(*data) : Value()},
                            {"field", formField},
                            {"mime-type", MIMEType},
                            {"filename", fileName}}));
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
    request->timeoutInterval = std::chrono::seconds(15);
    request->answerLimit = _answerLimit;
    request->method = _method;
    // Before the headers, because it sets one of them.
    request->body = formData();
    for (const auto& [field, value] : _customHeaders)
        request->appendValueForHTTPHeaderField(value, field);
    return request;
}

std::optional<platform::HTTPBody> TWLWebRequest::formData() {
    if (!_formFields || _formFields->empty())
        return std::nullopt;
    platform::HTTPBody body;
    // Text is collected between the pieces of bytes, so that files are not copied.
    std::string text = "MIME-Version: 1.0\r\n";
    for (const FormRecord& record : *_formFields) {
        const Value value = objectForKey(record, "value");
        if (const auto* string = value.as<std::string>()) {
            text += textPart(record, *string);
        } else if (const auto* bytes = value.as<Data>()) {
            body.append(Data(std::move(text) + filePartHead(record)));
            body.append(*bytes);
            text = "\r\n";
        }
    }
    body.append(Data(std::move(text) + format("--%@--\r\n", boundary)));
    addValueForHTTPHeaderField(format("multipart/form-data; boundary=%@", boundary), "Content-Type");
    return body;
}
