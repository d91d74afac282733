#include "device/guard.h"
#include "device/per_thread.h"
#include "device/records.h"
#include "token/device_functions.h"

namespace quelta::softtoken {

namespace {

// Each thread has lists of its own: another thread's call must not overwrite a list before the caller has copied it.
struct Lists {
    std::vector<QueltaKeyPair> keyPairs;
    std::vector<QueltaCertificate> certificates;
    std::vector<QueltaSymmetricKey> aesKeys;
};

template <class Record, class Stored, class Convert>
void fill(std::vector<Record>& list, const char* deviceId, std::vector<Stored> StoredToken::*items, Convert convert)
{
    list.clear();
    withToken(deviceId, [&](const StoredToken& state) {
        for (const Stored& item : state.*items) list.push_back(convert(item));
        return Result::ok;
    });
}

PerThread<Lists> threadLists;
// Returned to a thread if memory runs out. Stays empty.
Lists nothing;

template <class Record>
std::vector<Record>& listOf(std::vector<Record> Lists::*member, const auto& fillIt)
{
    std::vector<Record>* list = &(nothing.*member);
    guarded([&] {
        list = &(threadLists.mine().*member);
        fillIt(*list);
        return Result::ok;
    });
    return *list;
}

} // namespace

} // namespace quelta::softtoken

using namespace quelta;
using namespace quelta::softtoken;

std::vector<QueltaKeyPair>& quelta_getKeyPairList(const char* deviceId, void*)
{
    return listOf(&Lists::keyPairs, [&](auto& list) { fill(list, deviceId, &StoredToken::keyPairs, keyPairRecord); });
}

std::vector<QueltaCertificate>& quelta_getCertificateList(const char* deviceId, void*)
{
    return listOf(&Lists::certificates, [&](auto& list) { fill(list, deviceId, &StoredToken::certificates, certificateRecord); });
}

std::vector<QueltaSymmetricKey>& quelta_getAesKeyList(const char* deviceId, void*)
{
    return listOf(&Lists::aesKeys, [&](auto& list) { fill(list, deviceId, &StoredToken::aesKeys, aesKeyRecord); });
}

int quelta_getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void*)
{
    return withToken([&](const StoredToken&) {
        details = certificateDetails(viewOf(der, length));
        return Result::ok;
    });
}
