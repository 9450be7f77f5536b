#include "platform/foundation/UTF8.h"
#include "platform/propertylist/PropertyList.h"
#include "platform/propertylist/linux/PropertyListFormats.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <map>

namespace platform {
namespace {

/// With 17 digits, from which a reader gets the same double.
std::string realText(double real) {
    if (std::isnan(real))
        return "nan";
    if (std::isinf(real))
        return real > 0 ? "+infinity" : "-infinity";
    if (real == 0)
        return std::signbit(real) ? "-0.0" : "0.0";
    char text[32];
    return {text, std::to_chars(text, std::end(text), real, std::chars_format::general, 17).ptr};
}

/// Base64 (RFC 4648 section 4).
std::string base64(std::string_view bytes) {
    std::string result;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
        unsigned group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            result += i <= bytes.size() ? base64Digits[group >> (18 - 6 * i) & 63] : '=';
    }
    return result;
}

/// Writes values in the layout of Apple's writer: one element per line, indented by tabs.
class Writer {
public:
    void write(const Value& value) {
        if (const auto* boolean = value.as<bool>())
            line(*boolean ? "<true/>" : "<false/>");
        else if (const auto* integer = value.as<std::int64_t>())
            element("integer", std::to_string(*integer));
        else if (const auto* large = value.as<std::uint64_t>())
            element("integer", std::to_string(*large));
        else if (const auto* real = value.as<double>())
            element("real", realText(*real));
        else if (const auto* date = value.as<Date>())
            element("date", dateText(*date));
        else if (const auto* data = value.as<Data>())
            writeData(data->bytes());
        else if (const auto* array = value.as<Value::Array>())
            writeArray(*array);
        else if (const auto* dictionary = value.as<Value::Dictionary>())
            writeDictionary(*dictionary);
        else
            element("string", value.isNull() ? "" : textForXML(*value.as<std::string>()));
    }

    std::string xml;

private:
    void line(std::string_view text) { xml.append(_depth, '\t').append(text) += '\n'; }

    void element(std::string_view name, std::string_view text) {
        xml.append(_depth, '\t').append("<").append(name) += '>';
        for (const char c : text)
            if (c == '<')
                xml += "&lt;";
            else if (c == '>')
                xml += "&gt;";
            else if (c == '&')
                xml += "&amp;";
            else if (c == '\r') // a parser would read it as a line break
                xml += "&#13;";
            else
                xml += c;
        xml.append("</").append(name) += ">\n";
    }

    void open(const std::string& name) {
        line("<" + name + ">");
        ++_depth;
        _contentStart = xml.size();
    }

    void close(const std::string& name) {
        --_depth;
        if (xml.size() == _contentStart)
            xml.replace(xml.size() - 2, 2, "/>\n");
        else
            line("</" + name + ">");
    }

    /// Lines fill 76 columns; a tab counts as 8. From the ninth level on the indentation is constant.
    void writeData(std::string_view bytes) {
        const std::size_t indent = std::min<std::size_t>(_depth, 8);
        const std::size_t bytesPerLine = (76 - 8 * indent) / 4 * 3;
        line("<data>");
        for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), bytesPerLine)))
            xml.append(indent, '\t').append(base64(bytes.substr(0, bytesPerLine))) += '\n';
        line("</data>");
    }

    void writeArray(const Value::Array& array) {
        open("array");
        for (const Value& element : array)
            if (!element.isNull())
                write(element);
        close("array");
    }

    /// The characters that XML does not allow are replaced, and keys can become equal. The first one is used.
    void writeDictionary(const Value::Dictionary& dictionary) {
        std::map<std::string, const Value*> members;
        for (const auto& [key, member] : dictionary)
            if (!member.isNull())
                members.emplace(textForXML(key), &member);
        open("dict");
        for (const auto& [key, member] : members) {
            element("key", key);
            write(*member);
        }
        close("dict");
    }

    std::size_t _depth = 0;
    std::size_t _contentStart = 0; // after the last opening tag
};

} // namespace

std::string dateText(Date date) {
    constexpr double limit = 6e16;
    const double seconds = std::isnan(date.secondsSince2001) ? 0 : std::floor(date.secondsSince2001);
    const std::time_t time = static_cast<std::time_t>(std::clamp(seconds, -limit, limit)) + epochOfDates;
    std::tm fields = {};
    gmtime_r(&time, &fields);
    const long year = fields.tm_year + 1900L;
    char text[64];
    std::snprintf(text, sizeof text, "%s%04ld-%02d-%02dT%02d:%02d:%02dZ", year < 0 ? "-" : "",
                  std::labs(year), fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                  fields.tm_sec);
    return text;
}

std::string propertyListXML(const Value& value) {
    Writer writer;
    writer.xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)";
    writer.write(value);
    return std::move(writer.xml) + "</plist>\n";
}

} // namespace platform
