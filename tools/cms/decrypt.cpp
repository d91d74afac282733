#include "tools/cms/enveloped_data.h"

#include "base/table.h"
#include "common/object_ids.h"
#include "tools/cms/ber_stream.h"
#include "tools/console/failure.h"
#include "tools/token/key_choice.h"

#include <algorithm>
#include <optional>
#include <ranges>

namespace quelta::tools {

namespace {

constexpr std::string_view authEnvelopedData = "1.2.840.113549.1.9.16.1.23";

struct Recipient {
    der::Element certificate;
    std::string algorithm;
    ByteView wrappedKey;
};

struct Envelope {
    // The recipients' views point into this SET.
    Bytes recipientInfos;
    std::vector<Recipient> recipients;
    const KnownCipher* cipher;
    Bytes iv;
    // The elements around the content, the outermost first.
    std::vector<BerStream::Level> levels;
};

// Returns nullopt for a recipient without an RSA key.
std::optional<Recipient> readRecipient(const der::Element& info)
{
    if (info.tag != der::tagSequence) return std::nullopt;
    der::Reader fields(info.content);
    const auto version = fields.next(der::tagInteger);
    const auto certificate = version ? fields.next() : std::nullopt;
    auto algorithm = fields.enter(der::tagSequence);
    const auto key = fields.octetString();
    const auto oid = algorithm ? algorithm->oid() : std::nullopt;
    if (!certificate || !oid || !key) return std::nullopt;
    return Recipient{*certificate, *oid, *key};
}

std::vector<Recipient> readRecipients(ByteView set)
{
    std::vector<Recipient> recipients;
    auto infos = der::Reader(set).enter(der::tagSet);
    while (const auto info = infos ? infos->next() : std::nullopt)
        if (auto recipient = readRecipient(*info)) recipients.push_back(std::move(*recipient));
    return recipients;
}

void readCipher(ByteView algorithm, Envelope& envelope)
{
    auto fields = der::Reader(algorithm).enter(der::tagSequence);
    const auto oid = fields ? fields->oid() : std::nullopt;
    const auto iv = oid ? fields->octetString() : std::nullopt;
    if (iv) envelope.cipher = findRow(knownCiphers, &KnownCipher::oid, *oid);
    if (!iv || !envelope.cipher || iv->size() != envelope.cipher->blockSize)
        throw Failure(
            "the content's cipher is not one of AES-128, AES-192, AES-256 and triple DES in CBC mode; ask for one of these");
    envelope.iv = toBytes(*iv);
}

// Reads the head. The stream then stands before the encrypted content.
Envelope readEnvelope(BerStream& stream)
{
    Envelope envelope{};
    const auto enter = [&](unsigned char tag) { envelope.levels.push_back(stream.enter(tag)); };
    enter(der::tagSequence);
    const Bytes type = stream.element();
    if (type == der::oid(authEnvelopedData))
        throw Failure(
            "the message is encrypted with an authenticated cipher such as AES-GCM, which this tool does not know; ask for "
            "AES-256 in CBC mode");
    if (type != der::oid(oid::envelopedData)) stream.refuse();
    enter(der::explicitTag(0));
    enter(der::tagSequence);
    stream.element();
    envelope.recipientInfos = stream.element();
    // The sender's certificates may precede the recipients.
    if (envelope.recipientInfos.at(0) == der::explicitTag(0)) envelope.recipientInfos = stream.element();
    envelope.recipients = readRecipients(envelope.recipientInfos);
    enter(der::tagSequence);
    stream.element();
    readCipher(stream.element(), envelope);
    return envelope;
}

// Throws a Failure if the message does not end as its head says. Attributes may follow the content.
void readToEnd(BerStream& stream, const Envelope& envelope)
{
    for (const auto& level : std::views::reverse(envelope.levels))
        while (!stream.atEnd(level)) stream.element();
}

struct Match {
    const KeyEntry* key;
    const Recipient* recipient;
    // The certificate decides, not the size alone.
    bool named;
};

bool couldOpen(const KeyEntry& key, const Recipient& recipient)
{
    const auto kind = key.certificate && key.canDecrypt ? publicKeyKind(*key.certificate) : std::nullopt;
    return kind && kind->bits == 8 * recipient.wrappedKey.size();
}

// Orders the keys: those that the message names come first. Others may have had another certificate when the message was made.
std::vector<Match> matchesOf(const std::vector<KeyEntry>& keys, const Envelope& envelope)
{
    std::vector<Match> matches;
    for (const KeyEntry& key : keys) {
        for (const Recipient& recipient : envelope.recipients) {
            const bool named = key.certificate && key.canDecrypt && isNamedBy(*key.certificate, recipient.certificate);
            if (named || couldOpen(key, recipient)) matches.push_back({&key, &recipient, named});
        }
    }
    std::ranges::stable_partition(matches, &Match::named);
    return matches;
}

Wiped<Bytes> unwrapContentKey(TokenProvider& provider, const Match& match, const KnownCipher& cipher)
{
    const bool oaep = match.recipient->algorithm == oid::rsaOaep;
    if (!oaep && match.recipient->algorithm != oid::rsaEncryption)
        throw Failure("the content key is not encrypted with RSA as PKCS#1 v1.5 or OAEP; ask for one of these");
    Wiped<Bytes> key = provider.unwrap(*match.key, match.recipient->wrappedKey, oaep);
    if (key->size() != cipher.keySize)
        throw Failure("the content key does not fit the cipher; the message is damaged, get it anew");
    return key;
}

// The token's codes for a content key that is damaged or not for the tried key.
bool isRefusal(const CallFailure& failure)
{
    constexpr unsigned long refusals[] = {0x8009001D, 0x8009002D, 0x80090005};
    return std::ranges::find(refusals, failure.code()) != std::end(refusals);
}

Wiped<Bytes> openContentKey(TokenProvider& provider, std::vector<KeyEntry> keys, const std::string& keyName,
                            const Envelope& envelope, const std::string& fileName)
{
    if (!keyName.empty()) {
        KeyEntry chosen = chooseKey(std::move(keys), decryption, keyName);
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

// Decrypts whole blocks and holds the last one back, since only the end shows its padding.
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
    readToEnd(stream, envelope);
    writer.finish();
}

} // namespace quelta::tools
