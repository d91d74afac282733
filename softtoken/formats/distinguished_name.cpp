#include "formats/distinguished_name.h"

#include "base/der_reader.h"
#include "common/bcrypt_calls.h"
#include "common/text.h"

#include <windows.h>

#include <wincrypt.h>

namespace quelta::softtoken {

namespace {

// A comma within quotes does not separate parts.
std::vector<std::string> partsOf(const std::string& text)
{
    std::vector<std::string> parts(1);
    bool quoted = false;
    for (const char character : text) {
        if (character == '"') quoted = !quoted;
        if (character == ',' && !quoted)
            parts.emplace_back();
        else
            parts.back() += character;
    }
    return parts;
}

Bytes encodePart(const std::string& part)
{
    constexpr DWORD form = CERT_X500_NAME_STR | CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG;
    const std::wstring wide = toWide(part);
    DWORD size = 0;
    if (!CertStrToNameW(X509_ASN_ENCODING, wide.c_str(), form, nullptr, nullptr, &size, nullptr))
        throw TokenError(Result::badArgument, "not a part of a name: " + part +
                                                  "; a name is written like CN=Ada, O=\"Example, Inc\", of CN, O, OU, C, S, L, "
                                                  "SERIALNUMBER and E");
    Bytes der(size);
    CertStrToNameW(X509_ASN_ENCODING, wide.c_str(), form, nullptr, der.data(), &size, nullptr);
    der.resize(size);
    return der;
}

std::string formatted(DWORD kind, ByteView nameDer)
{
    CERT_NAME_BLOB name{bcryptSize(nameDer), bcryptInput(nameDer)};
    const DWORD size = CertNameToStrW(X509_ASN_ENCODING, &name, kind, nullptr, 0);
    std::wstring text(size, L'\0');
    CertNameToStrW(X509_ASN_ENCODING, &name, kind, text.data(), size);
    text.resize(size == 0 ? 0 : size - 1);
    return toUtf8(text);
}

} // namespace

std::string nameText(ByteView nameDer)
{
    return formatted(CERT_X500_NAME_STR, nameDer);
}

std::string commonName(const std::string& text)
{
    std::string quoted = "CN=\"";
    for (const char character : text) quoted.append(character == '"' ? 2 : 1, character);
    return quoted + "\"";
}

// Encodes part by part, since Wine's crypt32 takes a quoted value only at the end.
Bytes encodeName(const std::string& text)
{
    Bytes content;
    for (const std::string& part : partsOf(text.find('=') == std::string::npos ? commonName(text) : text))
        append(content, DerReader(encodePart(part)).content(der::tagSequence));
    return der::element(der::tagSequence, content);
}

} // namespace quelta::softtoken
