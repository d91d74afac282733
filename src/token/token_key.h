// What both providers' key handles hold of a key: a copy, taken once, that never goes back to the token.
#pragma once

#include "base/bytes.h"
#include "base/wipe.h"
#include "token/device_records.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace quelta {

template <class Unit, std::size_t Room>
class Bounded {
public:
    std::span<const Unit> view() const { return std::span<const Unit>(data_).first(length_); }
    std::size_t size() const { return length_; }
    bool empty() const { return length_ == 0; }

    // False, and nothing changed, if it does not fit.
    bool assign(std::span<const Unit> content)
    {
        if (content.size() > Room) return false;
        std::ranges::copy(content, data_.begin());
        length_ = content.size();
        return true;
    }

private:
    std::array<Unit, Room> data_{};
    std::size_t length_ = 0;
};

template <std::size_t Room>
using BoundedBytes = Bounded<unsigned char, Room>;

// No field has memory of its own: to take over what the token has made can't fail.
struct TokenKey {
    std::array<unsigned char, keyIdSize> keyId{};
    std::uint32_t algorithm = 0;
    std::uint32_t keyUsage = 0;
    // Raw big-endian modulus, or a DER form, whose first byte is 0x30.
    BoundedBytes<1024> publicKey;
    // With the label, what tells the certificates of the key.
    BoundedBytes<128> objectId;
    Bounded<char, 128> label;
    std::uint32_t bitLength = 0;
    std::uint8_t keyPairFlag = 0;
    // In clear; only of symmetric keys that came encrypted to a key pair.
    Wiped<BoundedBytes<32>> symmetricKey;
};

// Identifier, public key, object identifier, label and flag. Algorithm, usage and bit length are the caller's to set.
void copyIdentity(const QueltaKeyPair& pair, TokenKey& key);
// Identifier, object identifier, label, usage and flag of a symmetric key that the token stored.
void copyIdentity(const QueltaSymmetricKey& stored, TokenKey& key);

} // namespace quelta
