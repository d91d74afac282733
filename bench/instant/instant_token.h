// The content of the instant library's token: as many key pairs and certificates as a measurement asks for. The certificates can
// be parsed, and their signatures mean nothing.
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

// Each key pair has a certificate. All certificates have the same issuers, so that a chain has `depth` certificates. The issuers
// stand before the other certificates or behind them.
InstantToken instantToken(unsigned keys, unsigned depth, bool issuersFirst);

} // namespace quelta::bench
