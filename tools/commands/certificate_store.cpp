#include "tools/commands/certificate_store.h"

#include "base/provider_name.h"
#include "common/text.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"

namespace quelta::tools {

namespace {

constexpr DWORD markProperty = CERT_FIRST_USER_PROP_ID + 0x51;
constexpr std::string_view markText = "quelta publish";

bool isMarked(const CERT_CONTEXT& certificate)
{
    return propertyOf(certificate, markProperty) == toBytes(markText) ||
           propertyOf(certificate, CERT_DESCRIPTION_PROP_ID) == toBytes(markText);
}

// The record's pointers point into its own bytes.
const CRYPT_KEY_PROV_INFO* placeIn(const Bytes& property)
{
    return property.empty() ? nullptr : reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(property.data());
}

bool isAt(const CERT_CONTEXT& certificate, const KeyPlace* place)
{
    const Bytes property = propertyOf(certificate, CERT_KEY_PROV_INFO_PROP_ID);
    const auto* found = placeIn(property);
    if (!place || !found) return !place && !found;
    return toUtf8(found->pwszContainerName) == place->container && found->dwProvType == place->providerType &&
           found->dwKeySpec == place->keySpec;
}

void setProperty(const CERT_CONTEXT& certificate, DWORD property, const void* value)
{
    if (!CertSetCertificateContextProperty(&certificate, property, 0, value)) failWithLastError("can't prepare a certificate");
}

// Wine keeps only properties that it knows. Nothing else uses the description.
void setMark(const CERT_CONTEXT& certificate)
{
    const Bytes mark = toBytes(markText);
    const CRYPT_DATA_BLOB blob = blobOf(mark);
    if (!CertSetCertificateContextProperty(&certificate, markProperty, 0, &blob))
        setProperty(certificate, CERT_DESCRIPTION_PROP_ID, &blob);
}

void setPlace(const CERT_CONTEXT& certificate, const KeyPlace& place)
{
    std::wstring container = toWide(place.container);
    std::wstring provider = wideProviderName;
    const CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), place.providerType, 0, 0, nullptr, place.keySpec};
    setProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, &info);
}

} // namespace

// Opens the store through the registry. In a store that Wine opens by name, deleted certificates come back.
UserStore::UserStore(const wchar_t* name)
    : name_(name), store_(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, name))
{
    if (!store_) failWithLastError("can't open the store " + toUtf8(name_));
}

CertificateContext UserStore::find(ByteView certificate) const
{
    PCCERT_CONTEXT found = nullptr;
    while ((found = CertEnumCertificatesInStore(store_.get(), found)))
        if (sameBytes(encodedOf(*found), certificate)) return CertificateContext(found);
    return {};
}

Placed UserStore::put(ByteView certificate, const KeyPlace* place)
{
    if (const auto known = find(certificate)) {
        if (!isMarked(*known)) return Placed::somebodyElses;
        if (isAt(*known, place)) return Placed::unchanged;
        // Delete, then add: replacing keeps the old properties on some systems.
        remove(certificate);
    }
    const CertificateContext context = parseCertificate(certificate);
    if (!context) throw Failure("the token holds what is no certificate; quelta check tells which");
    setMark(*context);
    if (place) setPlace(*context, *place);
    if (!CertAddCertificateContextToStore(store_.get(), context.get(), CERT_STORE_ADD_NEW, nullptr))
        failWithLastError("can't put a certificate into the store " + toUtf8(name_));
    return Placed::added;
}

bool UserStore::leadsToProvider(ByteView certificate) const
{
    const auto known = find(certificate);
    const Bytes property = known ? propertyOf(*known, CERT_KEY_PROV_INFO_PROP_ID) : Bytes();
    const auto* place = placeIn(property);
    return place && std::wstring_view(place->pwszProvName) == wideProviderName;
}

std::vector<Bytes> UserStore::marked() const
{
    std::vector<Bytes> all;
    PCCERT_CONTEXT found = nullptr;
    while ((found = CertEnumCertificatesInStore(store_.get(), found)))
        if (isMarked(*found)) all.push_back(toBytes(encodedOf(*found)));
    return all;
}

void UserStore::remove(ByteView certificate)
{
    // Deleting frees the context as well.
    if (auto found = find(certificate); found && !CertDeleteCertificateFromStore(found.release()))
        failWithLastError("can't take a certificate out of the store " + toUtf8(name_));
}

} // namespace quelta::tools
