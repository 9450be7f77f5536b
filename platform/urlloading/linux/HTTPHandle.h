#pragma once

#include "platform/urlloading/URLRequest.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace platform {

/// An easy handle of libcurl with the options and headers of one request.
class HTTPHandle {
public:
    /// `request` must have a URL. Check `result` afterwards.
    explicit HTTPHandle(const URLRequest& request);
    HTTPHandle(const HTTPHandle&) = delete;
    HTTPHandle& operator=(const HTTPHandle&) = delete;

    CURL* get() const { return _easy.get(); }
    /// The first failure of the constructor or of `set`.
    CURLcode result() const { return _result; }
    /// Why libcurl failed; empty before a failure.
    const char* reason() const { return _reason; }

    /// Sets an option, unless an earlier call failed.
    template <class T>
    void set(CURLoption option, T value) {
        if (_result == CURLE_OK)
            _result = curl_easy_setopt(get(), option, value);
    }
    template <class T>
    T info(CURLINFO name) const {
        T value = {};
        return curl_easy_getinfo(get(), name, &value) == CURLE_OK ? value : T();
    }

private:
    void setTransport();
    void setRequest(const URLRequest& request);
    void setHeaders(const HTTPHeaders& headers);
    void addHeaderLine(const std::string& line);

    CURLcode _result;
    char _reason[CURL_ERROR_SIZE] = "";
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> _headerLines{nullptr, &curl_slist_free_all};
    // Last: the handle points to the members above and must be destroyed before them.
    std::unique_ptr<CURL, void (*)(CURL*)> _easy;
};

} // namespace platform
