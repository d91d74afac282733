// The part of a key handle that both providers share: a copy of the key's data. Changes on the token do not reach it.
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

    // Returns false and changes nothing if `content` does not fit.
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

// No field allocates memory, so copying a key that the token has just made cannot fail.
struct TokenKey {
    std::array<unsigned char, keyIdSize> keyId{};
    std::uint32_t algorithm = 0;
    std::uint32_t keyUsage = 0;
    // A raw big-endian modulus; or DER, which begins with 0x30.
    BoundedBytes<1024> publicKey;
    // The token's key reference. The key's certificates are found by this or by the label.
    BoundedBytes<128> objectId;
    Bounded<char, 128> label;
    std::uint32_t bitLength = 0;
    std::uint8_t keyPairFlag = 0;
    // The clear key. Only a symmetric key that was imported encrypted to a key pair has one.
    Wiped<BoundedBytes<32>> symmetricKey;
};

// Copies identifier, public key, object identifier, label and flag. The caller sets algorithm, usage and bit length.
void copyIdentity(const QueltaKeyPair& pair, TokenKey& key);
// Copies identifier, object identifier, label, usage and flag of a symmetric key that the token stored.
void copyIdentity(const QueltaSymmetricKey& stored, TokenKey& key);

} // namespace quelta
