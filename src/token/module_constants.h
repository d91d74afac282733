// Names that belong to this generation of the maker's software. Nothing in the module reads them; they are defined so that a
// search of the binary for one of them finds it.
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
