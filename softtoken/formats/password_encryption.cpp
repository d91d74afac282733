#include "formats/password_encryption.h"

#include "base/table.h"
#include "base/token_error.h"
#include "common/known_algorithms.h"
#include "crypto/symmetric.h"

namespace quelta::softtoken {

namespace {

constexpr std::uint64_t mostIterations = 10'000'000;

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
    DerReader derivation = parameters.enter(der::tagSequence);
    DerReader encryption = parameters.enter(der::tagSequence);
    if (derivation.objectId() != oidPbkdf2) refuseScheme();
    DerReader fields = derivation.enter(der::tagSequence);
    const ByteView salt = fields.content(der::tagOctetString);
    const std::uint64_t iterations = readIterations(fields);
    if (fields.nextIs(der::tagInteger)) fields.integer();
    const KnownDigest* prf = fields.atEnd() ? &sha1 : digestOfHmacOid(fields.enter(der::tagSequence).objectId());

    const KnownCipher* row = findRow(knownCiphers, &KnownCipher::oid, encryption.objectId());
    if (prf == nullptr || row == nullptr) refuseScheme();
    const Bytes key = pbkdf2(*prf, toBytes(password), salt, iterations, row->keySize);
    return paddedDecrypt(row->blockSize == 16 ? Cipher::aes : Cipher::tripleDes, key, encryption.content(der::tagOctetString),
                         cipherText);
}

Bytes decryptPkcs12TripleDes(DerReader parameters, ByteView cipherText, const std::string& password)
{
    const ByteView salt = parameters.content(der::tagOctetString);
    const std::uint64_t iterations = readIterations(parameters);
    const Bytes key = pkcs12Derive(sha1, Purpose::key, &password, salt, iterations, 24);
    const Bytes iv = pkcs12Derive(sha1, Purpose::iv, &password, salt, iterations, 8);
    return paddedDecrypt(Cipher::tripleDes, key, iv, cipherText);
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
        if (scheme == oidPbes2) return decryptPbes2(algorithm.enter(der::tagSequence), cipher, password);
        if (scheme == oidPkcs12TripleDes) return decryptPkcs12TripleDes(algorithm.enter(der::tagSequence), cipher, password);
    } catch (const TokenError& error) {
        if (error.result() != Result::badData) throw;
        throw TokenError(Result::wrongPin, "the password is wrong, or the file is damaged");
    }
    refuseScheme();
}

Bytes decryptPrivateKeyInfo(ByteView der, const std::string& password)
{
    DerReader fields = DerReader(der).enter(der::tagSequence);
    const DerReader algorithm = fields.enter(der::tagSequence);
    return decryptWithPassword(algorithm, fields.content(der::tagOctetString), password);
}

} // namespace quelta::softtoken
