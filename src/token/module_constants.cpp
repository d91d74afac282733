#include "token/module_constants.h"

namespace quelta {

const char loginProfile[] = "winlogin-v1";
const char clientSecurityPath[] = "/client-security/";
const char clientCertificateFile[] = "client.pfx";
const char clientCertificatePassword[] = "pK7rTzQe";
const char interfaceName[] = "QueltaKey Interface";
const char interfaceVersion[] = "4.0.0.1";
const char libraryProfile[] = "queltadsc-v1";
const char libraryCertificateFile[] = "quelta-dsc.pfx";
const char libraryCertificatePassword[] = "Rov@ek#38";
const char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char base64UrlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

} // namespace quelta
