#pragma once

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

/// One HTTP request before it is sent: method, path or absolute URL, query parameters, headers and form
/// fields. It writes its own query string and multipart body. Not safe for concurrent use.
class TWLWebRequest {
public:
    using Parameters = std::map<std::string, std::string>;
    using FormRecord = platform::Value::Dictionary;
    using ProtectionSpaceHandler = std::function<bool(const platform::URLProtectionSpace&)>;

    /// A null method or path fails an assertion.
    static std::shared_ptr<TWLWebRequest> requestWithMethod(std::optional<std::string> method,
                                                            std::optional<std::string> path);
    explicit TWLWebRequest(std::optional<std::string> method);

    const std::string& method() const { return _method; }
    void setMethod(std::string method) { _method = std::move(method); }

    /// Relative to the client's base URL; not looked at when the request has a URL of its own.
    const std::optional<std::string>& path() const { return _path; }
    void setPath(std::optional<std::string> path) { _path = std::move(path); }

    /// The absolute URL without the parameters; null until the caller or the client sets it.
    const std::optional<platform::URL>& URL() const { return _url; }
    void setURL(std::optional<platform::URL> URL) { _url = std::move(URL); }

    /// What the query string is made of, unescaped. Null or empty: no query string.
    const std::optional<Parameters>& parameters() const { return _parameters; }
    void setParameters(std::optional<Parameters> parameters) { _parameters = std::move(parameters); }

    /// Decides on server-trust spaces on the asynchronous road; runs on the transaction's queue. A
    /// certificate that the platform refuses stays refused whatever it returns.
    const ProtectionSpaceHandler& protectionSpaceHandler() const { return _protectionSpaceHandler; }
    void setProtectionSpaceHandler(ProtectionSpaceHandler handler) {
        _protectionSpaceHandler = std::move(handler);
    }

    const platform::HTTPHeaders& customHeaders() const { return _customHeaders; }
    /// Replaces an earlier value of the same name.
    void addValueForHTTPHeaderField(std::string value, std::string field);
    /// Adds those headers that the request does not have yet.
    void addHeaders(const platform::HTTPHeaders& headers);

    /// The form fields in the order in which they were added; null before the first. A record has the keys
    /// "value" (text or bytes), "field", "mime-type" and, for files, "filename", and ends before the first of
    /// them that was null when it was added.
    const std::optional<std::vector<FormRecord>>& formFields() const { return _formFields; }
    void addFormRecord(FormRecord record);

    /// Adds a text field. Values that are neither text nor bytes are kept in the record, but not sent.
    void addValueForFormField(platform::Value value, std::optional<std::string> field);

    /// Adds a file field. The bytes are shared, not copied, up to the socket.
    void addData(std::optional<platform::Data> data, std::optional<std::string> MIMEType,
                 std::optional<std::string> fileName, std::optional<std::string> formField);

    /// Adds each member as a text field named "prefix[key]"; one level only.
    void addValueForFormFromDict(const platform::Value::Dictionary& dictionary,
                                 const std::string& withPrefix = "");

    /// Adds each member as a text field named by its key. Fields that are there already stay.
    void setFormData(const platform::Value::Dictionary& dictionary);

    /// The URL with the query string, keys and values escaped. Parameters are appended behind a "?" of their
    /// own even when the URL has a query. Null when the result does not parse.
    std::optional<platform::URL> fullURL() const;

    /// How many bytes of an answer's body are taken at most; a longer one is an error, and what had arrived
    /// is kept. Without a limit at first.
    std::uint64_t answerLimit() const { return _answerLimit; }
    void setAnswerLimit(std::uint64_t answerLimit) { _answerLimit = answerLimit; }

    /// The platform's request, made anew: 15 seconds' timeout, no local cache, and the multipart body when
    /// there are form fields (which also sets the header "Content-Type").
    std::shared_ptr<platform::URLRequest> URLRequest();

    /// The multipart/form-data body (RFC 7578, boundary "AaB03x"), or null without form fields. Names and
    /// values are written as they are. Sets the header "Content-Type".
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
