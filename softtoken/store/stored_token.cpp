#include "store/stored_token.h"

#include "common/bcrypt_calls.h"
#include "common/hex.h"
#include "crypto/primitives.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace quelta::softtoken {

namespace {

using Json = nlohmann::ordered_json;

constexpr int formatVersion = 2;

Bytes bytesAt(const Json& json, const char* name)
{
    auto bytes = fromHex(json.at(name).get_ref<const std::string&>());
    if (!bytes) throw TokenError(Result::badData, "a value is not hexadecimal");
    return *std::move(bytes);
}

template <class Item, class Write>
Json listOf(const std::vector<Item>& items, Write write)
{
    Json list = Json::array();
    for (const Item& item : items) list.push_back(write(item));
    return list;
}

template <class Item, class Read>
std::vector<Item> itemsOf(const Json& list, Read read)
{
    std::vector<Item> items;
    for (const Json& json : list) items.push_back(read(json));
    return items;
}

Json writeKeyPair(const StoredKeyPair& pair)
{
    return {{"id", toHex(pair.id)},
            {"reference", toHex(pair.reference)},
            {"label", pair.label},
            {"usage", pair.usage},
            {"algorithm", pair.algorithm},
            {"publicKey", toHex(pair.publicKey)},
            {"privateKey", toHex(pair.privateKey)}};
}

StoredKeyPair readKeyPair(const Json& json)
{
    return {keyIdFrom(bytesAt(json, "id")), bytesAt(json, "reference"), json.at("label"),           json.at("usage"),
            json.at("algorithm"),           bytesAt(json, "publicKey"), bytesAt(json, "privateKey")};
}

Json writeCertificate(const StoredCertificate& certificate)
{
    return {{"keyId", toHex(certificate.keyId)},
            {"chainOf", toHex(certificate.chainOf)},
            {"reference", toHex(certificate.reference)},
            {"label", certificate.label},
            {"der", toHex(certificate.der)}};
}

StoredCertificate readCertificate(const Json& json)
{
    return {bytesAt(json, "keyId"), bytesAt(json, "chainOf"), bytesAt(json, "reference"), json.at("label"), bytesAt(json, "der")};
}

Json writeAesKey(const StoredAesKey& key)
{
    return {{"id", toHex(key.id)}, {"reference", toHex(key.reference)},    {"label", key.label},
            {"usage", key.usage},  {"encryptionType", key.encryptionType}, {"value", toHex(key.value)}};
}

StoredAesKey readAesKey(const Json& json)
{
    return {keyIdFrom(bytesAt(json, "id")), bytesAt(json, "reference"), json.at("label"), json.at("usage"),
            json.at("encryptionType"),      bytesAt(json, "value")};
}

Json writePin(const StoredPin& pin)
{
    return {{"salt", toHex(pin.salt)}, {"hash", toHex(pin.hash)}, {"attempts", pin.attempts}, {"remaining", pin.remaining}};
}

StoredPin readPin(const Json& json)
{
    const StoredPin pin{bytesAt(json, "salt"), bytesAt(json, "hash"), json.at("attempts"), json.at("remaining")};
    // A damaged hash would make every PIN a wrong one that costs an attempt.
    if (pin.salt.size() != longestPin || pin.hash.size() != sha256.size || pin.remaining < 0 || pin.remaining > pin.attempts)
        throw TokenError(Result::badData, "what it holds of the PIN is damaged");
    return pin;
}

StoredToken readState(const Json& json)
{
    if (json.at("format") != formatVersion) throw TokenError(Result::badData, "another version of the software token made it");
    StoredToken state;
    state.serial = json.at("serial");
    state.label = json.at("label");
    state.plugged = json.at("plugged");
    state.clockMismatch = json.at("clockMismatch");
    state.singleSignOnEnabled = json.at("singleSignOnEnabled");
    state.singleSignOnOpen = json.at("singleSignOnOpen");
    state.pin = readPin(json.at("pin"));
    state.wrongPins = json.at("wrongPins");
    state.keyPairs = itemsOf<StoredKeyPair>(json.at("keyPairs"), readKeyPair);
    state.certificates = itemsOf<StoredCertificate>(json.at("certificates"), readCertificate);
    state.aesKeys = itemsOf<StoredAesKey>(json.at("aesKeys"), readAesKey);
    return state;
}

template <class State>
auto findPair(State& state, ByteView id)
{
    const auto found =
        std::ranges::find_if(state.keyPairs, [&](const StoredKeyPair& pair) { return std::ranges::equal(pair.id, id); });
    return found == state.keyPairs.end() ? nullptr : &*found;
}

} // namespace

std::string toJson(const StoredToken& state)
{
    const Json json{{"warning", "The keys stand here in clear: this software token protects nothing."},
                    {"format", formatVersion},
                    {"serial", state.serial},
                    {"label", state.label},
                    {"plugged", state.plugged},
                    {"clockMismatch", state.clockMismatch},
                    {"singleSignOnEnabled", state.singleSignOnEnabled},
                    {"singleSignOnOpen", state.singleSignOnOpen},
                    {"pin", writePin(state.pin)},
                    {"wrongPins", state.wrongPins},
                    {"keyPairs", listOf(state.keyPairs, writeKeyPair)},
                    {"certificates", listOf(state.certificates, writeCertificate)},
                    {"aesKeys", listOf(state.aesKeys, writeAesKey)}};
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::expected<StoredToken, TokenError> fromJson(const std::string& text)
{
    // The JSON library's own messages quote the text, which may be a private key. So nobody sees them.
    const Json json = Json::parse(text, nullptr, false);
    if (json.is_discarded()) return std::unexpected(TokenError(Result::badData, "it is damaged"));
    try {
        return readState(json);
    } catch (const TokenError& error) {
        return std::unexpected(error);
    } catch (const Json::exception&) {
        return std::unexpected(TokenError(Result::badData, "a value is missing or of another kind"));
    }
}

KeyId newKeyId()
{
    return keyIdFrom(randomBytes(keyIdSize));
}

KeyId keyIdFrom(ByteView bytes)
{
    if (bytes.size() != keyIdSize) throw TokenError(Result::badData, "a key identifier does not have 16 bytes");
    KeyId id{};
    std::ranges::copy(bytes, id.begin());
    return id;
}

StoredKeyPair* findKeyPair(StoredToken& state, ByteView id)
{
    return findPair(state, id);
}

const StoredKeyPair* findKeyPair(const StoredToken& state, ByteView id)
{
    return findPair(state, id);
}

void removeCertificatesOf(StoredToken& state, const KeyId& id)
{
    std::erase_if(state.certificates, [&](const StoredCertificate& certificate) {
        return std::ranges::equal(certificate.keyId, id) || std::ranges::equal(certificate.chainOf, id);
    });
}

void removeKeyPair(StoredToken& state, const KeyId& id)
{
    removeCertificatesOf(state, id);
    std::erase_if(state.keyPairs, [&](const StoredKeyPair& pair) { return pair.id == id; });
}

} // namespace quelta::softtoken
