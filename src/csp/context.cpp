#include "csp/context.h"

#include "csp/entry_points.h"
#include "token/handles.h"
#include "token/key_match.h"
#include "token/token_connection.h"

namespace quelta {

namespace {

constexpr OpeningTexts openingTexts = {
    .startingLibrary = "Library not initialised so initialising",
    .noToken = "Valid token not connected",
    .openFailed = "Init device to get certificate details failed : ",
};

constexpr PinTexts pinTexts = {
    .alreadyValidated = "PIN already validated -- no need to ask again",
    .askingForPin = "Password not validated or empty -- ask for PIN",
    .clockMismatch = "System time mismatch, Kidly login to Token Manager",
    .cancelled = "User cancelled password dialog",
    .longestPin = 63,
};

Answer refusalOf(OpeningFailure failure)
{
    return fail(failure == OpeningFailure::noToken ? NTE_TOKEN_KEYSET_STORAGE_FULL : NTE_PROVIDER_DLL_FAIL);
}

void listKeys(CspContext& context)
{
    for (const auto& pair : context.token().keyPairs()) {
        const auto& name = context.keyIdentifiers.emplace_back(keyName(pair));
        logDebug(name);
    }
    if (context.keyIdentifiers.empty()) logDebug("Acquire Context :: Key List is empty");
}

void takeContainerName(CspContext& context, const char* containerName)
{
    if (!containerName) {
        logDebug("CPAcquireContext - Container name not provided");
        return;
    }
    context.containerName = containerName;
    logDebug("CPAcquireContext - Container name : ", context.containerName);
}

} // namespace

bool CspContext::names(const QueltaKeyPair& pair) const
{
    return containerName.empty() || containerName == keyName(pair);
}

CspContext* contextOf(HCRYPTPROV handle)
{
    auto* context = recordOf<CspContext>(handle);
    return context && context->valid ? context : nullptr;
}

Outcome<Pin> ensurePinValidated(const CspContext& context)
{
    if (auto pin = ensurePin(context.token(), pinTexts)) return *std::move(pin);
    logError("Password validation failed");
    return std::unexpected(fail(NTE_FAIL));
}

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPAcquireContext(HCRYPTPROV* phProv, LPCSTR szContainer, DWORD dwFlags, void* pVTable)
{
    return entryPoint("CPAcquireContext", [&]() -> Answer {
        if (!phProv || !pVTable) return fail(ERROR_INVALID_PARAMETER);
        // The flags are only logged: every call gets a context on the connected token. CRYPT_SILENT does not suppress the PIN
        // dialog.
        logDebug("CPAcquireContext - dwFlags : ", dwFlags);
        auto context = makeRecordOrNull<CspContext>();
        if (!context) return fail(NTE_NO_MEMORY);
        auto deviceId = openFirstToken(context->libContext, openingTexts);
        if (!deviceId) return refusalOf(deviceId.error());
        context->serialNumber = *std::move(deviceId);
        listKeys(*context);
        takeContainerName(*context, szContainer);
        context->keysetType = 4096;
        context->valid = true;
        *phProv = handOut(std::move(context));
        return done();
    });
}

BOOL WINAPI CPReleaseContext(HCRYPTPROV hProv, DWORD dwFlags)
{
    return entryPoint("CPReleaseContext", [&]() -> Answer {
        if (dwFlags != 0) return fail(NTE_BAD_FLAGS);
        if (!contextOf(hProv)) return fail(NTE_BAD_UID);
        takeBack<CspContext>(hProv).reset();
        return done();
    });
}
