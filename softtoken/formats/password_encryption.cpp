#include "formats/password_encryption.h"

#include "crypto/symmetric.h"
#include "formats/byte_text.h"
#include "store/token_error.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr std::uint64_t mostIterations = 10'000'000;

struct CipherRow {
    std::string_view oid;
    Cipher cipher;
    std::size_t keySize;
};

constexpr CipherRow ciphers[] = {
    {"2.16.840.1.101.3.4.1.2", Cipher::aes, 16},
    {"2.16.840.1.101.3.4.1.22", Cipher::aes, 24},
    {"2.16.840.1.101.3.4.1.42", Cipher::aes, 32},
    {"1.2.840.113549.3.7", Cipher::tripleDes, 24},
};

constexpr std::string_view oidPbes2 = "1.2.840.113549.1.5.13";
constexpr std::string_view oidPbkdf2 = "1.2.840.113549.1.5.12";
constexpr std::string_view oidPkcs12TripleDes = "1.2.840.113549.1.12.1.3";

[[noreturn]] void refuseScheme()
{
    throw TokenError(Result::badData,
                     "the file is encrypted in a way that is not known here: write it anew with a current openssl");
}

Bytes decryptPbes2(DerReader parameters, ByteView cipherText, const std::string& password)
{
    DerReader derivation = parameters.enter(tag::sequence);
    DerReader encryption = parameters.enter(tag::sequence);
    if (derivation.objectId() != oidPbkdf2) refuseScheme();
    DerReader fields = derivation.enter(tag::sequence);
    const ByteView salt = fields.content(tag::octetString);
    const std::uint64_t iterations = readIterations(fields);
    if (fields.nextIs(tag::integer)) fields.integer();
    const DigestAlgorithm* prf = fields.atEnd() ? &sha1 : digestOfHmacOid(fields.enter(tag::sequence).objectId());

    const std::string oid = encryption.objectId();
    const auto row = std::ranges::find_if(ciphers, [&](const CipherRow& candidate) { return candidate.oid == oid; });
    if (prf == nullptr || row == std::end(ciphers)) refuseScheme();
    const Bytes key = pbkdf2(*prf, bytesOf(password), salt, iterations, row->keySize);
    return paddedDecrypt(row->cipher, key, encryption.content(tag::octetString), cipherText);
}

Bytes decryptPkcs12TripleDes(DerReader parameters, ByteView cipherText, const std::string& password)
{
    const ByteView salt = parameters.content(tag::octetString);
    const std::uint64_t iterations = readIterations(parameters);
    const Bytes key = pkcs12Derive(sha1, Purpose::key, &password, salt, iterations, 24);
    const Bytes iv = pkcs12Derive(sha1, Purpose::iv, &password, salt, iterations, 8);
    return paddedDecrypt(Cipher::tripleDes, key, iv, cipherText);
}

// Big-endian UTF-16 with a zero at the end.
Bytes bmpPassword(const std::string& password)
{
    Bytes bytes;
    for (const wchar_t unit : toWide(password) + L'\0') {
        bytes.push_back(static_cast<unsigned char>(unit >> 8));
        bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
    }
    return bytes;
}

Bytes repeated(ByteView bytes, std::size_t block)
{
    Bytes result;
    if (bytes.empty()) return result;
    const std::size_t size = (bytes.size() + block - 1) / block * block;
    for (std::size_t i = 0; i < size; ++i) result.push_back(bytes[i % bytes.size()]);
    return result;
}

// Adds the block and one, all as big-endian numbers; what overflows is dropped.
void addBlock(std::span<unsigned char> part, ByteView block)
{
    unsigned int carry = 1;
    for (std::size_t i = part.size(); i-- > 0; carry >>= 8) {
        carry += part[i] + static_cast<unsigned int>(block[i]);
        part[i] = static_cast<unsigned char>(carry & 0xFF);
    }
}

} // namespace

const std::string& requirePassword(const std::optional<std::string>& password)
{
    if (!password) throw TokenError(Result::badArgument, "the file is protected by a password: give it with --password");
    return *password;
}

std::uint64_t readIterations(DerReader& fields)
{
    const std::uint64_t iterations = fields.smallInteger();
    if (iterations == 0 || iterations > mostIterations)
        throw TokenError(Result::badData, "the file's iteration count is out of bounds");
    return iterations;
}

Bytes decryptWithPassword(DerReader algorithm, ByteView cipher, const std::string& password)
{
    const std::string scheme = algorithm.objectId();
    try {
        if (scheme == oidPbes2) return decryptPbes2(algorithm.enter(tag::sequence), cipher, password);
        if (scheme == oidPkcs12TripleDes) return decryptPkcs12TripleDes(algorithm.enter(tag::sequence), cipher, password);
    } catch (const TokenError& error) {
        if (error.result() != Result::badData) throw;
        throw TokenError(Result::wrongPin, "the password is wrong, or the file is damaged");
    }
    refuseScheme();
}

Bytes decryptPrivateKeyInfo(ByteView der, const std::string& password)
{
    DerReader fields = DerReader(der).enter(tag::sequence);
    const DerReader algorithm = fields.enter(tag::sequence);
    return decryptWithPassword(algorithm, fields.content(tag::octetString), password);
}

Bytes pkcs12Derive(const DigestAlgorithm& algorithm, Purpose purpose, const std::string* password, ByteView salt,
                   std::uint64_t iterations, std::size_t size)
{
    const std::size_t block = algorithm.size > 32 ? 128 : 64;
    const Bytes diversifier(block, static_cast<unsigned char>(purpose));
    Bytes input = repeated(salt, block);
    if (password != nullptr) append(input, repeated(bmpPassword(*password), block));

    Bytes derived;
    while (derived.size() < size) {
        Bytes value = derJoined({diversifier, input});
        for (std::uint64_t round = 0; round < iterations; ++round) value = digest(algorithm, value);
        append(derived, value);
        Bytes addend;
        while (addend.size() < block) addend.push_back(value[addend.size() % value.size()]);
        for (std::size_t i = 0; i < input.size(); i += block) addBlock(std::span(input).subspan(i, block), addend);
    }
    derived.resize(size);
    return derived;
}

} // namespace quelta::softtoken
