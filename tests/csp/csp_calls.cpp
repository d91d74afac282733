#include "csp/csp_calls.h"

#include "csp/context.h"

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
                                              entryPoint("CPGetProvParam", "PvBCq", CPGetProvParam),
                                              entryPoint("CPSetProvParam", "PwDg", CPSetProvParam),
                                              entryPoint("CPGenKey", "PafH", CPGenKey),
                                              entryPoint("CPGetUserKey", "PsH", CPGetUserKey),
                                              entryPoint("CPGetKeyParam", "PKyBCg", CPGetKeyParam),
                                              entryPoint("CPSetKeyParam", "PKyDf", CPSetKeyParam),
                                              entryPoint("CPDestroyKey", "PK", CPDestroyKey),
                                              entryPoint("CPImportKey", "PDLkfH", CPImportKey),
                                              entryPoint("CPExportKey", "PKxbfBC", CPExportKey),
                                              entryPoint("CPCreateHash", "PaxfH", CPCreateHash),
                                              entryPoint("CPHashData", "PKDlg", CPHashData),
                                              entryPoint("CPGetHashParam", "PKhBCf", CPGetHashParam),
                                              entryPoint("CPSetHashParam", "PKhDf", CPSetHashParam),
                                              entryPoint("CPDuplicateHash", "PKxfH", CPDuplicateHash),
                                              entryPoint("CPDestroyHash", "PK", CPDestroyHash),
                                              entryPoint("CPHashSessionKey", "xxxx", CPHashSessionKey),
                                              entryPoint("CPSignHash", "PKsxfBC", CPSignHash),
                                              entryPoint("CPVerifySignature", "PKDLkxg", CPVerifySignature),
                                              entryPoint("CPEncrypt", "PKxxfBCR", CPEncrypt),
                                              entryPoint("CPDecrypt", "PKxxfBC", CPDecrypt),
                                              entryPoint("CPGenRandom", "PRB", CPGenRandom),
                                              entryPoint("CPDeriveKey", "xxxxx", CPDeriveKey)};
    return all;
}

std::string CspCalls::answerText(const Called<BOOL>& called)
{
    const std::string value = called.result ? "TRUE" : "FALSE";
    if (!called.lastErrorKept()) return value + ", " + errorName(called.lastError);
    return called.result ? value : value + ", last error kept";
}

CspCalls::~CspCalls()
{
    CspContext ready;
    ready.valid = true;
    const auto prov = addressOf(&ready);
    const Recorder::Pause pause(recorder_);
    for (const auto& [made, kind] : made_) {
        if (kind == "context") CPReleaseContext(made, 0);
        if (kind == "key") CPDestroyKey(prov, made);
        if (kind == "hash") CPDestroyHash(prov, made);
    }
}

BOOL CspCalls::recorded(const char* name, const std::string& arguments, const std::function<BOOL()>& call)
{
    Called<BOOL> called{};
    recorder_.record(name, handle(context) + ", " + arguments,
                     [&] { return answerText(called = callWithLastError(std::ref(call))); });
    return called.result;
}

std::pair<LONG, std::string> CspCalls::call(const Function& function, const Function::Values& values) const
{
    const auto called = callWithLastError([&] { return BOOL{function(values)}; });
    return {called.result, answerText(called)};
}

const char* CspCalls::kindOf(const Function& function) const
{
    return function.name == "CPAcquireContext" ? "context" : function.name.ends_with("Hash") ? "hash" : "key";
}

std::string CspCalls::inputText(const Function& function, const Input& input) const
{
    if (function.name != "CPImportKey" || !input || input->size() < sizeof(BLOBHEADER)) return inputWords(input);
    const auto& header = *reinterpret_cast<const BLOBHEADER*>(input->data());
    return blobTypeName(header.bType) + " " + algorithmName(header.aiKeyAlg) + " " +
           words(ByteView(*input).subspan(sizeof header));
}

std::optional<std::string> CspCalls::valueText(const Function& function, const Function::Values& values, ByteView value) const
{
    const auto named = [](const char* name, DWORD length) { return ", \"" + std::string(name) + "\" " + std::to_string(length); };
    if (function.name != "CPGetProvParam") return std::nullopt;
    if (values[1] == PP_ENUMALGS && value.size() == sizeof(PROV_ENUMALGS)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS*>(value.data());
        return algorithmName(record.aiAlgid) + " " + std::to_string(record.dwBitLen) + named(record.szName, record.dwNameLen);
    }
    if (values[1] == PP_ENUMALGS_EX && value.size() == sizeof(PROV_ENUMALGS_EX)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS_EX*>(value.data());
        std::string text = algorithmName(record.aiAlgid);
        for (const DWORD number : {record.dwDefaultLen, record.dwMinLen, record.dwMaxLen, record.dwProtocols})
            text += " " + std::to_string(number);
        return text + named(record.szName, record.dwNameLen) + named(record.szLongName, record.dwLongNameLen);
    }
    return std::nullopt;
}

} // namespace quelta::test
