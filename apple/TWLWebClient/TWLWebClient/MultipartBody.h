#pragma once

#include "platform/foundation/Value.h"
#include "platform/urlloading/HTTPBody.h"

#include <optional>
#include <string>
#include <vector>

/// One field of a form. All members may be null.
struct FormRecord {
    /// Text makes a text part, bytes make a file part. Other values are not sent.
    platform::Value value;
    std::optional<std::string> field;
    /// Used in file parts only; a text part is always text/plain.
    std::optional<std::string> MIMEType;
    /// Used in file parts only.
    std::optional<std::string> fileName;

    /// The record without the members that follow its first null member. A file
    /// without a type thus also loses its name, which is sent as "(null)". Services expect that.
    static FormRecord upToFirstNull(FormRecord record);
};

/// The multipart/form-data body (RFC 7578) of form records, and its content type. The file parts share the
/// bytes of the records. Names and values are not escaped.
struct MultipartBody {
    explicit MultipartBody(const std::vector<FormRecord>& records);

    platform::HTTPBody bytes;
    std::string contentType;
};
