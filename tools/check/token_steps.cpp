#include "base/text.h"
#include "common/der_reader.h"
#include "tools/check/steps.h"
#include "tools/cms/bcrypt_call.h"
#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/commands/certificate_store.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"
#include "tools/token/key_choice.h"
#include "tools/token/open_token.h"
#include "tools/token/provider_log.h"

#include <algorithm>

namespace quelta::tools {

namespace {

constexpr auto noToken = "there is no token to look at";

Found lookAtToken(Examination& examination)
{
    examination.csp = std::make_unique<CspProvider>();
    examination.ksp = openProvider(Interface::ksp);
    return {Finding::ok, "plugged in, and both interfaces open it"};
}

std::string describe(const ListedKey& row)
{
    const TokenKey& key = row.key;
    return shortName(key) + " (" + (key.certificate ? displayNameOf(*key.certificate) : key.algorithm) + ")";
}

// Those for which `isBad` has something to say, in one line.
template <class Judge>
std::string faults(const std::vector<ListedKey>& keys, Judge judge)
{
    std::string text;
    for (const ListedKey& row : keys)
        if (const std::string fault = judge(row); !fault.empty())
            text += (text.empty() ? "" : "; ") + describe(row) + " " + fault;
    return text;
}

Found judged(const std::string& faults, Finding ifAny, const std::string& well, const std::string& advice)
{
    if (faults.empty()) return {Finding::ok, well};
    return {ifAny, faults + advice};
}

Found lookAtKeys(Examination& examination)
{
    if (!examination.csp) return {Finding::leftOut, noToken};
    examination.keys = keysOfBoth();
    if (examination.keys.empty()) return {Finding::failed, "the token holds no key; make one on it, or ask who issued it"};
    return {Finding::ok, std::to_string(examination.keys.size()) + " on the token; quelta list shows them"};
}

Found lookAtCertificates(Examination& examination)
{
    if (examination.keys.empty()) return {Finding::leftOut, noToken};
    const auto missing = faults(examination.keys, [](const ListedKey& row) { return row.key.certificate ? "" : "has none"; });
    const bool all = std::ranges::none_of(examination.keys, [](const ListedKey& row) { return row.key.certificate != nullptr; });
    return judged(missing, all ? Finding::failed : Finding::note, "one for each key", "; without one a key can't be used");
}

std::string validityFault(const ListedKey& row)
{
    if (!row.key.certificate) return {};
    switch (validityAt(*row.key.certificate, timeNow())) {
    case Validity::expired: return "expired on " + timeText(row.key.certificate->pCertInfo->NotAfter);
    case Validity::notYetValid: return "is not valid before " + timeText(row.key.certificate->pCertInfo->NotBefore);
    case Validity::valid: break;
    }
    return {};
}

Found lookAtValidity(Examination& examination)
{
    if (examination.keys.empty()) return {Finding::leftOut, noToken};
    return judged(faults(examination.keys, validityFault), Finding::failed, "every certificate is valid today",
                  "; renew it, or set this computer's clock if that is wrong");
}

TokenProvider& providerOf(const Examination& examination, const ListedKey& row)
{
    if (row.throughCsp) return *examination.csp;
    return *examination.ksp;
}

std::string chainFault(const Examination& examination, const ListedKey& row)
{
    if (!row.key.certificate) return {};
    CheckedSignature known;
    known.certificates.reset(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    for (const Bytes& der : providerOf(examination, row).chain(row.key))
        CertAddEncodedCertificateToStore(known.certificates.get(), certificateEncoding, der.data(),
                                         static_cast<DWORD>(der.size()), CERT_STORE_ADD_ALWAYS, nullptr);
    const Signer holder{CertificateContext(CertDuplicateCertificateContext(row.key.certificate.get())), {}, {}};
    // What is said of time has a line of its own.
    const ChainEnd chain = describeChain(holder, known, row.key.certificate->pCertInfo->NotBefore);
    return chain.trusted ? "" : "ends in " + chain.name;
}

Found lookAtChains(Examination& examination)
{
    if (examination.keys.empty()) return {Finding::leftOut, noToken};
    return judged(faults(examination.keys, [&](const ListedKey& row) { return chainFault(examination, row); }), Finding::note,
                  "every certificate leads to a root that this system trusts",
                  "; this system does not trust that root: an administrator may add it to the trusted ones");
}

Found lookAtStore(Examination& examination)
{
    if (examination.keys.empty()) return {Finding::leftOut, noToken};
    const UserStore store(L"My");
    const auto absent = faults(examination.keys, [&](const ListedKey& row) {
        return !row.key.certificate || store.leadsToProvider(encodedOf(*row.key.certificate)) ? "" : "is not in the store My";
    });
    return judged(absent, Finding::failed, "every certificate is in the store My",
                  "; applications do not see it: quelta publish");
}

int logLevel()
{
    unsigned char data[32]{};
    DWORD size = sizeof data;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"Software\\Oskvar\\Quelta", L"logLevel", RRF_RT_ANY, nullptr, data, &size)) return 2;
    const auto level = static_cast<signed char>(data[0]);
    return level > 3 ? 2 : level;
}

bool canWriteInto(const std::filesystem::path& folder)
{
    const auto probe = folder / "quelta-check.tmp";
    return fileOf(CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)) !=
           nullptr;
}

Found lookAtLog(Examination&)
{
    const auto folder = ownLogFile().parent_path();
    const int level = logLevel();
    const std::string where = "level " + std::to_string(level) + ", in " + nameOf(logFolder());
    if (!canWriteInto(folder))
        return {Finding::failed, "can't write into " + nameOf(folder) + "; see to its permissions and to the disk"};
    if (level < 2) return {Finding::note, where + ": nothing is logged; set logLevel under HKLM\\Software\\Oskvar\\Quelta to 2"};
    if (level > 2) return {Finding::note, where + ": all is logged, symmetric keys in clear; set logLevel back to 2 when done"};
    return {Finding::ok, where};
}

Found lookAtRandom(Examination& examination)
{
    if (!examination.options.withPin) return {Finding::leftOut, "only with a PIN: --pin-dialog, --pin-terminal or --pin-stdin"};
    if (!examination.csp) return {Finding::leftOut, noToken};
    if (!examination.pin->empty()) {
        examination.csp->usePin(*examination.pin);
        examination.ksp->usePin(*examination.pin);
    }
    const Bytes first = examination.csp->randomBytes(32);
    if (first == examination.csp->randomBytes(32))
        return {Finding::failed, "the token gives the same bytes twice; ask its maker"};
    return {Finding::ok, "the token gives different ones"};
}

Found lookAtSignature(Examination& examination, TokenProvider* provider)
{
    if (!examination.options.withPin || !provider)
        return {Finding::leftOut, examination.options.withPin ? noToken : "only with a PIN"};
    const auto keys = provider->keys();
    const auto able = std::ranges::find_if(keys, [](const TokenKey& key) { return key.canSign && key.certificate; });
    if (able == keys.end()) return {Finding::note, "no key with a certificate can sign through this interface"};
    const Bytes data = randomBytes(32);
    Bytes signature = provider->sign(*able, knownDigests[0], data);
    if (able->algorithm != "RSA") signature = der::ecdsaSignature(signature);
    if (!signatureHolds(*able->certificate, knownDigests[0], digestOf(knownDigests[0], data), signature))
        return {Finding::failed, "made, but it does not fit the certificate; the token has another certificate for the key"};
    return {Finding::ok, "made with key " + shortName(*able) + " and verified"};
}

Found lookAtCspSignature(Examination& examination)
{
    return lookAtSignature(examination, examination.csp.get());
}

Found lookAtKspSignature(Examination& examination)
{
    return lookAtSignature(examination, examination.ksp.get());
}

constexpr CheckStep steps[] = {
    {"token", lookAtToken},
    {"keys", lookAtKeys},
    {"certificates", lookAtCertificates},
    {"validity", lookAtValidity},
    {"chains", lookAtChains},
    {"published", lookAtStore},
    {"log", lookAtLog},
    {"random numbers", lookAtRandom},
    {"signature through CryptoAPI", lookAtCspSignature},
    {"signature through key storage", lookAtKspSignature},
};

} // namespace

std::span<const CheckStep> tokenSteps()
{
    return steps;
}

} // namespace quelta::tools
