#include "csp/csp_calls.h"

namespace quelta::test {

namespace {

template <class Address>
Function entryPoint(const char* name, const char* arguments, Address address)
{
    return {name, arguments, reinterpret_cast<decltype(Function::address)>(reinterpret_cast<void*>(address))};
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

} // namespace quelta::test
