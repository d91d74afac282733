#include "formats/distinguished_name.h"

#include "formats/byte_text.h"
#include "formats/der.h"
#include "store/token_error.h"

#include <algorithm>
#include <string_view>

namespace quelta::softtoken {

namespace {

struct AttributeRow {
    std::string_view name;
    std::string_view oid;
    unsigned char tag;
};

constexpr AttributeRow attributes[] = {
    {"CN", "2.5.4.3", tag::utf8String},
    {"O", "2.5.4.10", tag::utf8String},
    {"OU", "2.5.4.11", tag::utf8String},
    {"C", "2.5.4.6", tag::printableString},
    {"ST", "2.5.4.8", tag::utf8String},
    {"L", "2.5.4.7", tag::utf8String},
    {"SERIALNUMBER", "2.5.4.5", tag::printableString},
    {"E", "1.2.840.113549.1.9.1", tag::ia5String},
    {"EMAILADDRESS", "1.2.840.113549.1.9.1", tag::ia5String},
};

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> partsOf(const std::string& text)
{
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size())
            parts.back() += text[++i];
        else if (text[i] == ',')
            parts.emplace_back();
        else
            parts.back() += text[i];
    }
    return parts;
}

const AttributeRow& rowOf(std::string name)
{
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    for (const AttributeRow& row : attributes)
        if (row.name == name) return row;
    throw TokenError(Result::badArgument,
                     "no such part of a name: " + name + "; there are CN, O, OU, C, ST, L, serialNumber and E");
}

Bytes encodeAttribute(const AttributeRow& row, const std::string& value)
{
    const bool country = row.name == "C";
    if (value.empty() || value.size() > 64 || (country && value.size() != 2))
        throw TokenError(Result::badArgument,
                         std::string(row.name) + " in a name has " + (country ? "two letters" : "1 to 64 bytes") + ": " + value);
    const Bytes attribute = derSequence({derObjectId(row.oid), derElement(row.tag, bytesOf(value))});
    return derElement(tag::set, attribute);
}

} // namespace

Bytes encodeName(const std::string& text)
{
    Bytes sets;
    for (const std::string& part : partsOf(text.find('=') == std::string::npos ? "CN=" + text : text)) {
        const std::size_t equals = part.find('=');
        if (equals == std::string::npos)
            throw TokenError(Result::badArgument,
                             "a name is written like \"CN=Ada, O=Example\"; a comma in a value wants a backslash before it");
        append(sets, encodeAttribute(rowOf(trimmed(part.substr(0, equals))), trimmed(part.substr(equals + 1))));
    }
    return derElement(tag::sequence, sets);
}

} // namespace quelta::softtoken
