#include "tools/cms/decrypt.h"

#include "common/bcrypt_calls.h"
#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/ber_stream.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/token/key_choice.h"

#include <algorithm>
#include <optional>

namespace quelta::tools {

namespace {

constexpr std::string_view authEnvelopedData = "1.2.840.113549.1.9.16.1.23";

struct Recipient {
    // One of the two names the certificate: issuer and serial number, or its key identifier.
    Bytes issuerAndSerial;
    Bytes keyIdentifier;
    Bytes algorithm;
    Bytes wrappedKey;
};

struct Envelope {
    std::vector<Recipient> recipients;
    const KnownCipher* cipher;
    Bytes iv;
};

// Nothing for a recipient of another kind than one with an RSA key.
std::optional<Recipient> readRecipient(const der::Element& info)
{
    if (info.tag != der::tagSequence) return std::nullopt;
    der::Reader fields(info.content);
    Recipient recipient;
    if (!fields.next(der::tagInteger)) return std::nullopt;
    if (const auto identity = fields.next(der::tagSequence))
        recipient.issuerAndSerial = toBytes(identity->whole);
    else if (const auto identifier = fields.next(der::implicitTag(0)))
        recipient.keyIdentifier = toBytes(identifier->content);
    const auto algorithm = fields.next(der::tagSequence);
    const auto key = fields.next(der::tagOctetString);
    const auto oid = algorithm ? der::Reader(algorithm->content).next(der::tagOid) : std::nullopt;
    if (!oid || !key) return std::nullopt;
    recipient.algorithm = toBytes(oid->whole);
    recipient.wrappedKey = toBytes(key->content);
    return recipient;
}

std::vector<Recipient> readRecipients(ByteView set)
{
    std::vector<Recipient> recipients;
    const auto all = der::Reader(set).next(der::tagSet);
    der::Reader infos(all ? all->content : ByteView());
    while (const auto info = infos.next())
        if (auto recipient = readRecipient(*info)) recipients.push_back(std::move(*recipient));
    return recipients;
}

void readCipher(ByteView algorithm, Envelope& envelope)
{
    const auto outer = der::Reader(algorithm).next(der::tagSequence);
    der::Reader fields(outer ? outer->content : ByteView());
    const auto oid = fields.next(der::tagOid);
    const auto iv = fields.next(der::tagOctetString);
    const auto* known = std::ranges::find_if(
        knownCiphers, [&](const KnownCipher& cipher) { return oid && sameBytes(oid->whole, der::oid(cipher.oid)); });
    envelope.cipher = known == std::end(knownCiphers) ? nullptr : known;
    if (!envelope.cipher || !iv || iv->content.size() != envelope.cipher->blockSize)
        throw Failure(
            "the content's cipher is not one of AES-128, AES-192, AES-256 and triple DES in CBC mode; ask for one of these");
    envelope.iv = toBytes(iv->content);
}

// Leaves the stream before the encrypted content.
Envelope readEnvelope(BerStream& stream)
{
    Envelope envelope{};
    stream.enter(der::tagSequence);
    const Bytes type = stream.element();
    if (type == der::oid(authEnvelopedData))
        throw Failure(
            "the message is encrypted with an authenticated cipher such as AES-GCM, which this tool does not know; ask for "
            "AES-256 in CBC mode");
    if (type != der::oid(oid::envelopedData)) stream.refuse();
    stream.enter(der::explicitTag(0));
    stream.enter(der::tagSequence);
    stream.element();
    Bytes recipients = stream.element();
    // Certificates of the sender may stand before the recipients.
    if (recipients.at(0) == der::explicitTag(0)) recipients = stream.element();
    envelope.recipients = readRecipients(recipients);
    stream.enter(der::tagSequence);
    stream.element();
    readCipher(stream.element(), envelope);
    return envelope;
}

bool isFor(const Recipient& recipient, const CERT_CONTEXT& certificate)
{
    if (!recipient.issuerAndSerial.empty()) return recipient.issuerAndSerial == issuerAndSerial(certificate);
    return !recipient.keyIdentifier.empty() && recipient.keyIdentifier == propertyOf(certificate, CERT_KEY_IDENTIFIER_PROP_ID);
}

struct Match {
    const KeyEntry* key;
    const Recipient* recipient;
    // By its certificate, and not by size alone.
    bool named;
};

bool couldOpen(const KeyEntry& key, const Recipient& recipient)
{
    const auto kind = key.certificate && key.canDecrypt ? publicKeyKind(*key.certificate) : std::nullopt;
    return kind && kind->bits == 8 * recipient.wrappedKey.size();
}

// Those that the message names come first. The others may be of a certificate that the key had before its present one.
std::vector<Match> matchesOf(const std::vector<KeyEntry>& keys, const Envelope& envelope)
{
    std::vector<Match> matches;
    for (const KeyEntry& key : keys) {
        for (const Recipient& recipient : envelope.recipients) {
            const bool named = key.certificate && key.canDecrypt && isFor(recipient, *key.certificate);
            if (named || couldOpen(key, recipient)) matches.push_back({&key, &recipient, named});
        }
    }
    std::ranges::stable_partition(matches, &Match::named);
    return matches;
}

Wiped<Bytes> unwrapContentKey(TokenProvider& provider, const Match& match, const KnownCipher& cipher)
{
    const bool oaep = match.recipient->algorithm == der::oid(oid::rsaOaep);
    if (!oaep && match.recipient->algorithm != der::oid(oid::rsaEncryption))
        throw Failure("the content key is not encrypted with RSA as PKCS#1 v1.5 or OAEP; ask for one of these");
    Wiped<Bytes> key = provider.unwrap(*match.key, match.recipient->wrappedKey, oaep);
    if (key->size() != cipher.keySize)
        throw Failure("the content key does not fit the cipher; the message is damaged, get it anew");
    return key;
}

// What the token says to a content key that is not for the key that is tried, or is damaged.
bool isRefusal(const CallFailure& failure)
{
    constexpr unsigned long refusals[] = {0x8009001D, 0x8009002D, 0x80090005};
    return std::ranges::find(refusals, failure.code()) != std::end(refusals);
}

Wiped<Bytes> openContentKey(TokenProvider& provider, std::vector<KeyEntry> keys, const std::string& keyName,
                            const Envelope& envelope, const std::string& fileName)
{
    if (!keyName.empty()) {
        KeyEntry chosen = chooseDecryptionKey(std::move(keys), {keyName});
        keys.clear();
        keys.push_back(std::move(chosen));
    }
    const auto matches = matchesOf(keys, envelope);
    for (const Match& match : matches) {
        try {
            return unwrapContentKey(provider, match, *envelope.cipher);
        } catch (const CallFailure& failure) {
            if (!isRefusal(failure)) throw;
            if (match.named)
                throw Failure("the token can't open the content key of " + fileName +
                              ", which is damaged, or the token was pulled out; get the message anew: " + failure.what());
        } catch (const Failure&) {
            if (match.named) throw;
        }
    }
    throw Failure(fileName +
                  " is not encrypted for a key on this token that can decrypt; plug in the token it was encrypted for");
}

// Decrypts in whole blocks and holds the last one back: how much of it is padding is known only at the end.
class ContentWriter {
public:
    ContentWriter(BlockCipher key, OutputFile& output) : key_(std::move(key)), output_(output) {}

    void take(ByteView piece)
    {
        held_.insert(held_.end(), piece.begin(), piece.end());
        if (held_.size() <= key_.blockSize()) return;
        const std::size_t ready = (held_.size() - 1) / key_.blockSize() * key_.blockSize();
        output_.write(key_.decrypt({held_.data(), ready}));
        held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(ready));
    }

    void finish()
    {
        constexpr auto damaged = "the content is damaged or was encrypted with another key; get the message anew";
        if (held_.size() != key_.blockSize()) throw Failure(damaged);
        const Bytes last = key_.decrypt(held_);
        const std::size_t padding = last.back();
        if (padding == 0 || padding > last.size()) throw Failure(damaged);
        const ByteView filler = ByteView(last).last(padding);
        if (std::ranges::any_of(filler, [&](unsigned char byte) { return byte != padding; })) throw Failure(damaged);
        output_.write(ByteView(last).first(last.size() - padding));
    }

private:
    BlockCipher key_;
    OutputFile& output_;
    Bytes held_;
};

} // namespace

void decryptWith(TokenProvider& provider, const std::string& keyName, InputFile& file, OutputFile& output)
{
    BerStream stream(file.name(), [&](std::span<unsigned char> room) { return file.read(room); });
    const Envelope envelope = readEnvelope(stream);
    const Wiped<Bytes> key = openContentKey(provider, provider.keys(), keyName, envelope, file.name());
    ContentWriter writer(BlockCipher(*envelope.cipher, *key, envelope.iv), output);
    stream.octets([&](ByteView piece) { writer.take(piece); });
    writer.finish();
}

} // namespace quelta::tools
