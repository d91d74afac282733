// A certificate with an RSA key whose private half nobody has any more.
#pragma once

#include "certificates.h"

namespace quelta {

inline Bytes testCertificate()
{
    constexpr auto pem = R"(
-----BEGIN CERTIFICATE-----
MIICEDCCAXmgAwIBAgIUSXxrhkeCjqo5UUnK7UBz4PY0wQ0wDQYJKoZIhvcNAQEL
BQAwGTEXMBUGA1UEAwwOVGVzdCByZWNpcGllbnQwIBcNMjYxMTI0MjI1ODU2WhgP
MjEyNjEwMzEyMjU4NTZaMBkxFzAVBgNVBAMMDlRlc3QgcmVjaXBpZW50MIGfMA0G
CSqGSIb3DQEBAQUAA4GNADCBiQKBgQDTlJZsKSpSl8h8PeqypM3BkXR2C9W5jDHD
BgoXTOq9JjChoyZb22HdUEmxSnOdklT6/4bziyAFSC7HAUouI7vOdHMQLNGkBupb
0yoNTfyFm6dEtcZGUc39F1oOqWXtrPwr5BC+Nh/yIesH4hhf/ueLpQiAOzCLQD0K
+mWyC0eVjQIDAQABo1MwUTAdBgNVHQ4EFgQUq6Pdy/ik+XhC2oZfGcD1PpSNjC8w
HwYDVR0jBBgwFoAUq6Pdy/ik+XhC2oZfGcD1PpSNjC8wDwYDVR0TAQH/BAUwAwEB
/zANBgkqhkiG9w0BAQsFAAOBgQAdjdbYFuJ0V/ZRrNPdpX6PtOVLW+PTzsyb4J+w
H7D4l0fSx/7otvm5M6qLm+MkizUyg5+hNZUn9PPrIufKYm+uOj3btDDhV2r/xzfB
tA2ln5fT+ocTUaM9d2yiXapPGpXVEHLO0VERbD+s6ro6cRdsAXiEyP0rqc5amQwh
XSY7eQ==
-----END CERTIFICATE-----
)";
    const std::string_view text = std::string_view(pem).substr(1);
    return withoutPem({text.begin(), text.end()});
}

} // namespace quelta
