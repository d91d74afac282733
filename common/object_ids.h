// Object identifiers in the dotted form.
#pragma once

#include <string_view>

namespace quelta {

namespace oid {
constexpr std::string_view rsaEncryption = "1.2.840.113549.1.1.1";
constexpr std::string_view rsaOaep = "1.2.840.113549.1.1.7";
constexpr std::string_view sha256WithRsa = "1.2.840.113549.1.1.11";
constexpr std::string_view ecPublicKey = "1.2.840.10045.2.1";
constexpr std::string_view commonName = "2.5.4.3";
// Content types and attributes of CMS (RFC 5652).
constexpr std::string_view data = "1.2.840.113549.1.7.1";
constexpr std::string_view signedData = "1.2.840.113549.1.7.2";
constexpr std::string_view envelopedData = "1.2.840.113549.1.7.3";
constexpr std::string_view contentType = "1.2.840.113549.1.9.3";
constexpr std::string_view messageDigest = "1.2.840.113549.1.9.4";
constexpr std::string_view signingTime = "1.2.840.113549.1.9.5";
// The attribute that has a time stamp (RFC 3161).
constexpr std::string_view timeStampToken = "1.2.840.113549.1.9.16.2.14";
} // namespace oid

} // namespace quelta
