#pragma once

#include "TWLWebClient/MultipartBody.h"
#include "platform/foundation/URL.h"
#include "platform/foundation/Value.h"
#include "platform/urlloading/HTTPBody.h"
#include "platform/urlloading/HTTPHeaders.h"
#include "platform/urlloading/URLConnection.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// An HTTP request: method, path or absolute URL, query parameters, headers and form fields. Makes the query
/// string. Not safe for concurrent use.
class TWLWebRequest {
public:
    using Parameters = std::map<std::string, std::string>;
    using ProtectionSpaceHandler = std::function<bool(const platform::URLProtectionSpace&)>;

    /// A null method or path fails an assertion.
    static std::shared_ptr<TWLWebRequest> requestWithMethod(std::optional<std::string> method,
                                                            std::optional<std::string> path);
    explicit TWLWebRequest(std::optional<std::string> method);

    const std::string& method() const { return _method; }
    void setMethod(std::string method) { _method = std::move(method); }

    /// Relative to the client's base URL. Ignored if the request has a URL.
    const std::optional<std::string>& path() const { return _path; }
    void setPath(std::optional<std::string> path) { _path = std::move(path); }

    /// The absolute URL without the parameters; null until the caller or the client sets it.
    const std::optional<platform::URL>& URL() const { return _url; }
    void setURL(std::optional<platform::URL> URL) { _url = std::move(URL); }

    /// The parameters of the query string, unescaped. If null or empty, there is no query string.
    const std::optional<Parameters>& parameters() const { return _parameters; }
    void setParameters(std::optional<Parameters> parameters) { _parameters = std::move(parameters); }

    /// Answers server-trust questions of asynchronous exchanges, on the transaction's queue. It cannot make
    /// an invalid certificate trusted.
    const ProtectionSpaceHandler& protectionSpaceHandler() const { return _protectionSpaceHandler; }
    void setProtectionSpaceHandler(ProtectionSpaceHandler handler) {
        _protectionSpaceHandler = std::move(handler);
    }

    const platform::HTTPHeaders& customHeaders() const { return _customHeaders; }
    /// Sets a header, replacing an earlier value.
    void addValueForHTTPHeaderField(std::string value, std::string field);
    /// Adds the headers that the request does not have yet.
    void addHeaders(const platform::HTTPHeaders& headers);

    /// The form fields in the order of the calls; null if there are none.
    const std::optional<std::vector<FormRecord>>& formFields() const { return _formFields; }
    void addFormRecord(FormRecord record);

    /// Adds a text field. Only values that are text or bytes are sent.
    void addValueForFormField(platform::Value value, std::optional<std::string> field);

    /// Adds a file field. The bytes are shared, not copied.
    void addData(std::optional<platform::Data> data, std::optional<std::string> MIMEType,
                 std::optional<std::string> fileName, std::optional<std::string> formField);

    /// Adds each member as a text field named "prefix[key]". Nested dictionaries are not expanded.
    void addValueForFormFromDict(const platform::Value::Dictionary& dictionary,
                                 const std::string& withPrefix = "");

    /// Adds each member as a text field named by its key. Keeps the fields that exist.
    void setFormData(const platform::Value::Dictionary& dictionary);

    /// The URL with the query string, keys and values escaped. The parameters follow a "?" of their own even
    /// if the URL has a query. Null if the result is not a valid URL.
    std::optional<platform::URL> fullURL() const;

    /// The largest body of an answer, in bytes. A longer one is an error; the bytes up to the limit are kept.
    /// The default is no limit.
    std::uint64_t answerLimit() const { return _answerLimit; }
    void setAnswerLimit(std::uint64_t answerLimit) { _answerLimit = answerLimit; }

    /// Makes the platform's request: its default timeout, no local cache, and the multipart body if there are
    /// form fields.
    std::shared_ptr<platform::URLRequest> URLRequest();

    /// Makes the MultipartBody of the form fields and sets the header "Content-Type". Null if there are none.
    std::optional<platform::HTTPBody> formData();

private:
    std::string _method;
    std::optional<std::string> _path;
    std::optional<platform::URL> _url;
    std::optional<Parameters> _parameters;
    platform::HTTPHeaders _customHeaders;
    std::optional<std::vector<FormRecord>> _formFields;
    ProtectionSpaceHandler _protectionSpaceHandler;
    std::uint64_t _answerLimit = UINT64_MAX;
};
