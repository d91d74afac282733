// What the instant library's token holds: as many key pairs and certificates as a measurement asks for. The certificates are
// whole to whoever reads them, and signed by nobody.
#pragma once

#include "base/bytes.h"
#include "token/device_records.h"

#include <map>

namespace quelta::bench {

struct InstantToken {
    std::vector<QueltaKeyPair> keyPairs;
    std::vector<QueltaCertificate> certificates;
    std::vector<QueltaSymmetricKey> aesKeys;
    // The purpose of each certificate.
    std::map<std::string, Bytes, std::less<>> publicKeys;
};

// Each key pair has a certificate, and all of them the same issuers, so many that a chain takes `depth` certificates; they stand
// before the others or behind them.
InstantToken instantToken(unsigned keys, unsigned depth, bool issuersFirst);

} // namespace quelta::bench
