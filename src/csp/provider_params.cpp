#include "base/provider_name.h"
#include "base/table.h"
#include "csp/certificate_chain.h"
#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/output.h"
#include "csp/supported_algorithms.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr DWORD implementationType = CRYPT_IMPL_HARDWARE | CRYPT_IMPL_REMOVABLE;
constexpr DWORD providerVersion = 0x100;
constexpr DWORD pinIsNeeded = 1;

Answer logged(Answer answer, Output out)
{
    logDebug("CPGetProvParam out length : ", *out.length);
    logDebug("CPGetProvParam return success");
    return answer;
}

Answer putNumber(Output out, DWORD value)
{
    return logged(putQuietly(out, bytesOf(value)), out);
}

Answer getImplementationType(CspContext&, Output out, DWORD)
{
    if (out.holds(sizeof implementationType)) logDebug("CPGetProvParam not null value provided");
    return putNumber(out, implementationType);
}

Answer getName(CspContext&, Output out, DWORD)
{
    // The length is 34 while the buffer is null or short, and 33 after a copy. Callers size by the first and read by the second.
    return logged(putTextQuietly(out, providerName), out);
}

Answer getVersion(CspContext&, Output out, DWORD)
{
    return putNumber(out, providerVersion);
}

Answer getContainer(CspContext& context, Output out, DWORD)
{
    tokenState().containerSelectedFlag = 1;
    logDebug("CPGetProvParam - copying container");
    return logged(putQuietly(out, bytesWithZero(context.containerName)), out);
}

Answer getProviderType(CspContext&, Output out, DWORD)
{
    return putNumber(out, PROV_RSA_FULL);
}

Answer getKeyStorage(CspContext&, Output out, DWORD)
{
    return putOrMoreData(out, bytesOf(implementationType));
}

Answer getKeysetType(CspContext& context, Output out, DWORD)
{
    return putNumber(out, context.keysetType);
}

Answer getPin(CspContext&, Output out, DWORD)
{
    logDebug("CPGetProvParam: PIN query");
    return putOrMoreData(out, bytesOf(pinIsNeeded));
}

Answer getHardwareRng(CspContext&, Output out, DWORD)
{
    const DWORD value = tokenState().hardwareRngFlag;
    const Answer answer = putOrMoreData(out, bytesOf(value));
    if (answer.lastError) {
        logDebug("Required size is Large");
    } else {
        logDebug("CPGetProvParam: PP_USE_HARDWARE_RNG = ", value);
    }
    return answer;
}

Answer getSigningProtection(CspContext&, Output out, DWORD)
{
    constexpr DWORD value = 1;
    const Answer answer = putOrMoreData(out, bytesOf(value));
    if (!answer.lastError) logDebug("CPGetProvParam: PP_ENUMEX_SIGNING_PROT = ", value);
    return answer;
}

// Moves before the buffer is checked, so a size query with CRYPT_NEXT uses up an item. Returns false for any other flag.
bool moveCursor(DWORD& cursor, DWORD flags)
{
    if (flags == CRYPT_FIRST) {
        cursor = 0;
    } else if (flags == CRYPT_NEXT) {
        ++cursor;
    } else {
        return false;
    }
    return true;
}

Answer enumerateAlgorithms(CspContext& context, Output out, DWORD flags)
{
    logDebug("CPGetProvParam: PP_ENUMALGS");
    DWORD& cursor = context.algorithmCursor;
    if (!moveCursor(cursor, flags)) return fail(ERROR_INVALID_PARAMETER);
    if (cursor >= std::size(supportedAlgorithms)) return fail(ERROR_NO_MORE_ITEMS);
    const auto& algorithm = supportedAlgorithms[cursor];
    const Answer answer = putEnumerated(out, bytesOf(enumAlgsOf(algorithm)));
    if (!answer.lastError) logDebug("CPGetProvParam: returned algorithm -> ", algorithm.shortName);
    return answer;
}

Answer enumerateAlgorithmsEx(CspContext& context, Output out, DWORD flags)
{
    logDebug("CPGetProvParam: PP_ENUMALGS_EX");
    DWORD& cursor = context.algorithmCursor;
    if (!moveCursor(cursor, flags)) {
        logDebug("Invalid dwFlags for PP_ENUMALGS_EX");
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (cursor >= std::size(supportedAlgorithms)) {
        logDebug("No more algorithms");
        return fail(ERROR_NO_MORE_ITEMS);
    }
    const auto& algorithm = supportedAlgorithms[cursor];
    const Answer answer = putEnumerated(out, bytesOf(enumAlgsExOf(algorithm)));
    if (!answer.lastError) logDebug("CPGetProvParam: returned EX algorithm -> ", algorithm.shortName);
    return answer;
}

Answer enumerateContainers(CspContext& context, Output out, DWORD flags)
{
    DWORD& cursor = context.containerCursor;
    if (!moveCursor(cursor, flags)) return fail(ERROR_INVALID_PARAMETER);
    if (cursor >= context.keyIdentifiers.size()) return fail(ERROR_NO_MORE_ITEMS);
    const std::string& name = context.keyIdentifiers[cursor];
    const Answer answer = putOrMoreData(out, bytesWithZero(name));
    if (!answer.lastError) logDebug("CPGetProvParam: returned container -> ", name);
    return answer;
}

DWORD keySpecOfUsage(std::uint32_t usage)
{
    if (usage == usageKeyExchange) return AT_KEYEXCHANGE;
    return canSign(usage) ? AT_SIGNATURE : 0;
}

Answer getKeySpec(CspContext& context, Output out, DWORD)
{
    const auto pairs = context.token().keyPairs();
    const auto pair = std::ranges::find(pairs, context.containerName, keyName);
    if (pair == pairs.end()) return fail(NTE_NO_KEY);
    const Answer answer = putOrMoreData(out, bytesOf(keySpecOfUsage(pair->usage)));
    if (answer.lastError) logDebug("More Data");
    return answer;
}

Answer getCertificateChain(CspContext& context, Output out, DWORD)
{
    return exportCertificateChain(context, out);
}

struct ProviderParameter {
    DWORD id;
    Answer (*answer)(CspContext& context, Output out, DWORD flags);
};

constexpr ProviderParameter providerParameters[] = {
    {PP_ENUMALGS, enumerateAlgorithms},
    {PP_ENUMCONTAINERS, enumerateContainers},
    {PP_IMPTYPE, getImplementationType},
    {PP_NAME, getName},
    {PP_VERSION, getVersion},
    {PP_CONTAINER, getContainer},
    {PP_CERTCHAIN, getCertificateChain},
    {PP_PROVTYPE, getProviderType},
    {PP_KEYSTORAGE, getKeyStorage},
    {PP_ENUMALGS_EX, enumerateAlgorithmsEx},
    {PP_KEYSET_TYPE, getKeysetType},
    {PP_ADMIN_PIN, getPin},
    {PP_KEYEXCHANGE_PIN, getPin},
    {PP_SIGNATURE_PIN, getPin},
    {PP_UNIQUE_CONTAINER, getContainer},
    {PP_USE_HARDWARE_RNG, getHardwareRng},
    {PP_KEYSPEC, getKeySpec},
    {PP_ENUMEX_SIGNING_PROT, getSigningProtection},
};

Answer setOwnerWindow(CspContext& context, const BYTE* data)
{
    context.ownerWindow = data ? valueOf<void*>(data) : nullptr;
    return done();
}

Answer setPin(CspContext& context, const BYTE* data)
{
    if (!data) {
        logError("CPSetProvParam: NULL PIN data");
        return fail(ERROR_INVALID_PARAMETER);
    }
    // This logs the length of the cached PIN, not of the new one.
    logDebug("CPSetProvParam - passwordLength : ", (*tokenState().pinCache.pin())->size());
    if (const int result = validateGivenPin(context.token(), reinterpret_cast<const char*>(data))) {
        logError("CPSetProvParam - Token password validation failed : ", result);
        return fail(NTE_KEYSET_ENTRY_BAD);
    }
    return done();
}

Answer setHardwareRng(CspContext&, const BYTE* data)
{
    if (!data) {
        logDebug("CPSetProvParam: NULL data for PP_USE_HARDWARE_RNG");
        return fail(ERROR_INVALID_PARAMETER);
    }
    const std::uint8_t value = valueOf<DWORD>(data) != 0 ? 1 : 0;
    tokenState().hardwareRngFlag = value;
    logDebug("CPSetProvParam: PP_USE_HARDWARE_RNG set to ", DWORD{value});
    return done();
}

struct SettableParameter {
    DWORD id;
    Answer (*set)(CspContext& context, const BYTE* data);
};

constexpr SettableParameter settableParameters[] = {
    {PP_CLIENT_HWND, setOwnerWindow},
    {PP_KEYEXCHANGE_PIN, setPin},
    {PP_SIGNATURE_PIN, setPin},
    {PP_USE_HARDWARE_RNG, setHardwareRng},
};

} // namespace

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags)
{
    return entryPoint("CPGetProvParam", [&]() -> Answer {
        auto* context = contextOf(hProv);
        if (!context) {
            logDebug("CPGetProvParam not initialised");
            return fail(NTE_BAD_UID);
        }
        logDebug("CPGetProvParam input : ", dwParam);
        logDebug("CPGetProvParam : ", dwParam);
        const auto* parameter = findRow(providerParameters, &ProviderParameter::id, dwParam);
        if (!parameter) {
            logDebug("CPGetProvParam default failed");
            return fail(NTE_BAD_TYPE);
        }
        if (!pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        return parameter->answer(*context, Output(pbData, pdwDataLen), dwFlags);
    });
}

BOOL WINAPI CPSetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD)
{
    return entryPoint("CPSetProvParam", [&]() -> Answer {
        auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        logDebug("CPSetProvParam - input param : ", dwParam);
        const auto* parameter = findRow(settableParameters, &SettableParameter::id, dwParam);
        if (!parameter) return fail(NTE_BAD_TYPE);
        return parameter->set(*context, pbData);
    });
}
