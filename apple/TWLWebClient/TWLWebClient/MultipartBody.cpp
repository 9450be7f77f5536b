#include "TWLWebClient/MultipartBody.h"

#include "platform/foundation/Format.h"

using platform::Data;
using platform::format;

namespace {

// The same in each request, because the service's readers expect it. Values are not searched for it: a value
// that contains a line "--AaB03x" ends its part.
constexpr const char* boundary = "AaB03x";

/// The start of a part, up to the field's name.
std::string partStart(const FormRecord& record) {
    return format("--%@\r\nContent-Disposition: form-data; name=\"%@\"", boundary, record.field);
}

std::string filePartHead(const FormRecord& record) {
    const std::string head = partStart(record) + format("; filename=\"%@\"\r\n", record.fileName);
    // The type of bytes whose type is unknown (RFC 7578 section 4.4).
    if (!record.MIMEType)
        return head + "Content-Type: application/octet-stream\r\n\r\n";
    return head + "Content-Type: " + *record.MIMEType + "\r\nContent-Transfer-Encoding: binary\r\n\r\n";
}

} // namespace

FormRecord FormRecord::upToFirstNull(FormRecord record) {
    if (record.value.isNull())
        record.field.reset();
    if (!record.field)
        record.MIMEType.reset();
    if (!record.MIMEType)
        record.fileName.reset();
    return record;
}

MultipartBody::MultipartBody(const std::vector<FormRecord>& records)
    : contentType(format("multipart/form-data; boundary=%@", boundary)) {
    // What precedes the next file. Files are pieces of their own, so that they are not copied.
    std::string text = "MIME-Version: 1.0\r\n";
    for (const FormRecord& record : records) {
        if (const auto* string = record.value.as<std::string>()) {
            text += partStart(record) + "\r\nContent-Type: text/plain\r\n\r\n" + *string + "\r\n";
        } else if (const auto* file = record.value.as<Data>()) {
            bytes.append(Data(std::move(text) + filePartHead(record)));
            bytes.append(*file);
            text = "\r\n";
        }
    }
    bytes.append(Data(std::move(text) + format("--%@--\r\n", boundary)));
}
