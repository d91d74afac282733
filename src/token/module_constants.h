// Names that the maker's own tools of this generation share. Nothing in this module reads them; they stay here so that a search
// of the binary or the sources for one of them finds it.
#pragma once

namespace quelta {

inline constexpr const char loginProfile[] = "winlogin-v1";
inline constexpr const char clientSecurityPath[] = "/client-security/";
inline constexpr const char clientCertificateFile[] = "client.pfx";
inline constexpr const char clientCertificatePassword[] = "pK7rTzQe";
inline constexpr const char interfaceName[] = "QueltaKey Interface";
inline constexpr const char interfaceVersion[] = "4.0.0.1";
inline constexpr const char libraryProfile[] = "queltadsc-v1";
inline constexpr const char libraryCertificateFile[] = "quelta-dsc.pfx";
inline constexpr const char libraryCertificatePassword[] = "Rov@ek#38";
inline constexpr const char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr const char base64UrlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

} // namespace quelta
