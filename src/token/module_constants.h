// Names that belong to this generation of the maker's software. The module does not read them. They are defined so that a search
// of the binary finds them.
#pragma once

namespace quelta {

extern const char loginProfile[];
extern const char clientSecurityPath[];
extern const char clientCertificateFile[];
extern const char clientCertificatePassword[];
extern const char interfaceName[];
extern const char interfaceVersion[];
extern const char libraryProfile[];
extern const char libraryCertificateFile[];
extern const char libraryCertificatePassword[];
extern const char base64Alphabet[];
extern const char base64UrlAlphabet[];

} // namespace quelta
