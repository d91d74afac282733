#include "base/table.h"
#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/hash_context.h"
#include "csp/output.h"
#include "token/handles.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace quelta {

HashContext* hashOf(HCRYPTHASH handle)
{
    return recordOf<HashContext>(handle);
}

bool finaliseDigest(const Token& token, HashContext& hash, std::size_t preset)
{
    std::array<unsigned char, digestRoom> digest{};
    const auto length = token.finalHash(hash.hashHandle, digest, preset);
    if (!length) return false;
    hash.hashValue = digest;
    hash.hashLength = static_cast<std::uint32_t>(*length);
    return true;
}

namespace {

static_assert(sizeof(HMAC_INFO) == 40);

struct CreatableHash {
    ALG_ID id;
    const char* line;
    std::int32_t mechanism;
    std::uint32_t size;
};

constexpr CreatableHash creatableHashes[] = {
    {CALG_SHA1, "Crete hash algorithm sha1", 2, 20},
    {CALG_SHA_256, "Crete hash algorithm 256", 3, 32},
    {CALG_SHA_384, "Crete hash algorithm 384", 4, 48},
    {CALG_SHA_512, "Crete hash algorithm 512", 5, 64},
};

struct ReadableHash {
    std::int32_t mechanism;
    ALG_ID id;
    DWORD size;
};

// SHA-384 and SHA-512 are missing: such a digest can be signed but not read back.
constexpr ReadableHash readableHashes[] = {
    {1, CALG_MD5, 16},
    {2, CALG_SHA1, 20},
    {3, CALG_SHA_256, 32},
};

const ReadableHash* readable(const HashContext& hash)
{
    return findRow(readableHashes, &ReadableHash::mechanism, hash.mechanism);
}

Answer startDeviceHash(const CspContext& context, HashContext& hash)
{
    void* started = nullptr;
    if (context.token().initHash(hash.mechanism, started) != 0) return fail(NTE_FAIL);
    hash.hashHandle = started;
    return done();
}

// The buffer is checked before the algorithm, so a size query succeeds for any algorithm.
Answer getAlgorithm(const HashContext& hash, Output out)
{
    if (out.isQuery()) return tellLength(out, sizeof(ALG_ID));
    if (!out.holds(sizeof(ALG_ID))) return tellLength(out, sizeof(ALG_ID), moreDataAndFalse());
    const auto* row = readable(hash);
    if (!row) return fail(NTE_BAD_ALGID);
    const Answer answer = putOrRefuse(out, bytesOf(row->id));
    logDebug("Get hash param success");
    return answer;
}

Answer getSize(const HashContext& hash, Output out)
{
    if (out.isQuery()) return tellLength(out, sizeof(DWORD));
    if (!out.holds(sizeof(DWORD))) return tellLength(out, sizeof(DWORD), moreDataAndFalse());
    const auto* row = readable(hash);
    if (!row) return fail(NTE_BAD_ALGID);
    logDebug("Get hash param hashSize : ", row->size);
    const Answer answer = putOrRefuse(out, bytesOf(row->size));
    logDebug("Get hash param success");
    return answer;
}

Answer getValue(const CspContext& context, HashContext& hash, Output out)
{
    const auto* row = readable(hash);
    if (!row) {
        logError("Unsupported Algorithm : ", hash.mechanism);
        return fail(NTE_BAD_ALGID);
    }
    if (out.isQuery()) return tellLength(out, row->size);
    // A buffer that is too short still finishes the hash. The next call reads the stored digest.
    if (!hash.finished) {
        if (!finaliseDigest(context.token(), hash, row->size)) return fail(NTE_FAIL);
        hash.finished = true;
    }
    return putOrRefuse(out, hash.digest());
}

Answer getHmacInfo(const HashContext& hash, Output out)
{
    if (!hash.hmacSet) return fail(NTE_BAD_TYPE);
    const Answer answer = putOrRefuse(out, bytesOf(hash.hmacInfo));
    if (answer.value && !out.isQuery()) logDebug("Get hash param success");
    return answer;
}

Answer setValue(HashContext& hash, const BYTE* data)
{
    std::copy_n(data, hash.hashSize, hash.hashValue.begin());
    hash.hashLength = hash.hashSize;
    hash.finished = true;
    return done();
}

// Starts a new, plain digest. The token gets neither the HMAC_INFO nor a notice that the previous hash has ended.
Answer setHmacInfo(const CspContext& context, HashContext& hash, const BYTE* data)
{
    std::memcpy(&hash.hmacInfo, data, sizeof hash.hmacInfo);
    return startDeviceHash(context, hash);
}

// Copies the record but not the running hash on the token: the duplicate lacks the data that was hashed so far, unless the source
// was finished.
std::unique_ptr<HashContext> copyOf(const HashContext& source)
{
    auto copy = std::make_unique<HashContext>(source);
    copy->hashAlgorithm = 0;
    copy->hashHandle = nullptr;
    return copy;
}

// Returns the address with the most significant byte first.
std::array<unsigned char, sizeof(void*)> addressBytes(const void* address)
{
    auto bytes = std::bit_cast<std::array<unsigned char, sizeof address>>(address);
    std::ranges::reverse(bytes);
    return bytes;
}

} // namespace

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY, DWORD dwFlags, HCRYPTHASH* phHash)
{
    return entryPoint("CPCreateHash", [&]() -> Answer {
        if (!phHash || !hProv) return fail(ERROR_INVALID_PARAMETER);
        if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        auto hash = std::make_unique<HashContext>();
        hash->inUse = true;
        logDebug("Crete hash algorithm input : ", Algid);
        const auto* row = findRow(creatableHashes, &CreatableHash::id, Algid);
        logDebug(row ? row->line : "Crete hash algorithm defaukt");
        if (!row) return fail(NTE_BAD_ALGID);
        hash->mechanism = row->mechanism;
        hash->hashSize = row->size;
        logDebug("Crete hash algorithm : ", hash->mechanism);
        const Answer started = startDeviceHash(*context, *hash);
        if (started.value) *phHash = handOut(std::move(hash));
        return started;
    });
}

BOOL WINAPI CPHashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData, DWORD cbDataLen, DWORD)
{
    return entryPoint("CPHashData", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        const auto* hash = hashOf(hHash);
        if (!hash) return fail(NTE_BAD_HASH);
        if (!pbData && cbDataLen != 0) return fail(ERROR_INVALID_PARAMETER);
        return context->token().updateHash(hash->hashHandle, {pbData, cbDataLen}) == 0 ? done() : fail(NTE_FAIL);
    });
}

BOOL WINAPI CPGetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags)
{
    return entryPoint("CPGetHashParam", [&]() -> Answer {
        auto* hash = hashOf(hHash);
        if (!hProv || !hash || !pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
        const auto* context = contextOf(hProv);
        if (!context || !hash->inUse) return fail(NTE_BAD_HASH);
        logDebug("CPGetHashParam dwParam : ", dwParam);
        logDebug("CPGetHashParam mechanism : ", hash->mechanism);
        switch (dwParam) {
        case HP_ALGID: return getAlgorithm(*hash, {pbData, pdwDataLen});
        case HP_HASHSIZE: return getSize(*hash, {pbData, pdwDataLen});
        case HP_HASHVAL: return getValue(*context, *hash, {pbData, pdwDataLen});
        case HP_HMAC_INFO: return getHmacInfo(*hash, {pbData, pdwDataLen});
        default: return fail(NTE_BAD_TYPE);
        }
    });
}

BOOL WINAPI CPSetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData, DWORD dwFlags)
{
    return entryPoint("CPSetHashParam", [&]() -> Answer {
        auto* hash = hashOf(hHash);
        if (!hProv || !hash || !pbData) return fail(ERROR_INVALID_PARAMETER);
        if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
        const auto* context = contextOf(hProv);
        if (!context || !hash->inUse) return fail(NTE_BAD_HASH);
        logDebug("Set hash param dwParam : ", dwParam);
        logDebug("Set hash param dwFlags : ", dwFlags);
        switch (dwParam) {
        case HP_HASHVAL: return setValue(*hash, pbData);
        case HP_HMAC_INFO: return setHmacInfo(*context, *hash, pbData);
        default: return fail(NTE_BAD_TYPE);
        }
    });
}

BOOL WINAPI CPDuplicateHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD*, DWORD dwFlags, HCRYPTHASH* phHash)
{
    return entryPoint("CPDuplicateHash", [&]() -> Answer {
        const auto* source = hashOf(hHash);
        if (!phHash || !hProv || !source) return fail(ERROR_INVALID_PARAMETER);
        if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        if (!source->inUse) return fail(NTE_BAD_HASH);
        auto copy = copyOf(*source);
        const Answer started = startDeviceHash(*context, *copy);
        if (!started.value) return started;
        const HashContext* const duplicate = copy.get();
        *phHash = handOut(std::move(copy));
        logDebug("CPDuplicateHash - source: 0x", hex(addressBytes(source)), " duplicate: 0x", hex(addressBytes(duplicate)));
        return done();
    });
}

BOOL WINAPI CPDestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash)
{
    return entryPoint("CPDestroyHash", [&]() -> Answer {
        if (!contextOf(hProv)) return fail(NTE_BAD_UID);
        if (!hashOf(hHash)) return fail(NTE_BAD_HASH);
        takeBack<HashContext>(hHash).reset();
        return done();
    });
}

BOOL WINAPI CPHashSessionKey(HCRYPTPROV, HCRYPTHASH, HCRYPTKEY, DWORD)
{
    return entryPoint("CPHashSessionKey", []() -> Answer { return fail(ERROR_CALL_NOT_IMPLEMENTED); });
}
