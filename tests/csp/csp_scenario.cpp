#include "csp/csp_scenario.h"

#include "base/der.h"
#include "csp/key_context.h"
#include "encoding/rsa_public_key.h"

namespace quelta::test {

namespace {

template <class Address>
Function entryPoint(const char* name, const char* arguments, Address address)
{
    return {name, arguments, reinterpret_cast<decltype(Function::address)>(reinterpret_cast<void*>(address))};
}

Bytes text(unsigned char tag, std::string_view content)
{
    return der::element(tag, toBytes(content));
}

Bytes nameOf(std::string_view name)
{
    const Bytes attribute = der::sequence({der::oid("2.5.4.3"), text(der::tagUtf8String, name)});
    return der::sequence({der::element(der::tagSet, attribute)});
}

} // namespace

const std::vector<Function>& entryPoints()
{
    static const std::vector<Function> all = {entryPoint("CPAcquireContext", "HtfX", CPAcquireContext),
                                              entryPoint("CPReleaseContext", "Pf", CPReleaseContext),
                                              entryPoint("CPGetProvParam", "PnBCf", CPGetProvParam),
                                              entryPoint("CPSetProvParam", "PnDg", CPSetProvParam),
                                              entryPoint("CPGenKey", "PnfH", CPGenKey),
                                              entryPoint("CPGetUserKey", "PnH", CPGetUserKey),
                                              entryPoint("CPGetKeyParam", "PKnBCg", CPGetKeyParam),
                                              entryPoint("CPSetKeyParam", "PKnDf", CPSetKeyParam),
                                              entryPoint("CPDestroyKey", "PK", CPDestroyKey),
                                              entryPoint("CPImportKey", "PDLkfH", CPImportKey),
                                              entryPoint("CPExportKey", "PKxnfBC", CPExportKey),
                                              entryPoint("CPCreateHash", "PnxfH", CPCreateHash),
                                              entryPoint("CPHashData", "PKDlg", CPHashData),
                                              entryPoint("CPGetHashParam", "PKnBCf", CPGetHashParam),
                                              entryPoint("CPSetHashParam", "PKnDf", CPSetHashParam),
                                              entryPoint("CPDuplicateHash", "PKxfH", CPDuplicateHash),
                                              entryPoint("CPDestroyHash", "PK", CPDestroyHash),
                                              entryPoint("CPHashSessionKey", "xxxx", CPHashSessionKey),
                                              entryPoint("CPSignHash", "PKnxfBC", CPSignHash),
                                              entryPoint("CPVerifySignature", "PKDLkxg", CPVerifySignature),
                                              entryPoint("CPEncrypt", "PKxxfBCR", CPEncrypt),
                                              entryPoint("CPDecrypt", "PKxxfBC", CPDecrypt),
                                              entryPoint("CPGenRandom", "PRB", CPGenRandom),
                                              entryPoint("CPDeriveKey", "xxxxx", CPDeriveKey)};
    return all;
}

Bytes unsignedCertificate(const std::string& subject, const std::string& issuer)
{
    const Bytes version = der::element(der::explicitTag(0), der::smallInteger(2));
    const Bytes algorithm = der::sequence({der::oid("1.2.840.113549.1.1.11"), der::null()});
    const Bytes validity = der::sequence({text(der::tagUtcTime, "200101000000Z"), text(der::tagUtcTime, "490101000000Z")});
    const Bytes content = der::sequence({version, der::smallInteger(1), algorithm, nameOf(issuer), validity, nameOf(subject),
                                         rawModulusToDer(counting(128, 0xC1))});
    return der::sequence({content, algorithm, der::bitString(Bytes(128, 1))});
}

HCRYPTKEY CspScenario::sessionKey(ALG_ID algorithm, const Bytes& value)
{
    const HCRYPTKEY with = userKey(AT_KEYEXCHANGE);
    token.plain.bytes = value;
    const HCRYPTKEY key = silently([&] { return csp("CPImportKey", {keyBlob(SIMPLEBLOB, algorithm, Bytes(132)), with}); });
    token.plain = {};
    return key;
}

HCRYPTHASH CspScenario::finishedHash()
{
    const HCRYPTHASH hash = newHash();
    silently([&] { return csp("CPSetHashParam", {hash, HP_HASHVAL, counting(32)}); });
    return hash;
}

void CspScenario::noteKey(HCRYPTKEY key)
{
    recorder.note(recorder.handle(key) + " is " + keyWords(*keyOf(key)));
}

} // namespace quelta::test
