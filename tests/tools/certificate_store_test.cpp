#include "tools/commands/certificate_store.h"

#include "tools/cms/certificates.h"
#include "tools/console/files.h"

#include <gtest/gtest.h>

namespace quelta::tools {
namespace {

constexpr auto storeName = L"QueltaTest";

// Returns the signer's certificate of a signature that another implementation made.
CertificateContext certificateIn(const std::string& name)
{
    const Bytes der = withoutPem(readSmallFile(QUELTA_SIGNATURES_DIR "/" + name + ".pem"));
    const CRYPT_DATA_BLOB blob = blobOf(der);
    const CertificateStore store(CertOpenStore(CERT_STORE_PROV_PKCS7, certificateEncoding, 0, 0, &blob));
    return CertificateContext(CertEnumCertificatesInStore(store.get(), nullptr));
}

void clear()
{
    RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\Microsoft\\SystemCertificates\\QueltaTest");
}

// Each call gets a new object, so that it finds only what is in the registry.
TEST(UserStores, KeepWhatSomebodyElsePutThereAndWhereAKeyIs)
{
    clear();
    const CertificateContext another = certificateIn("ecdsa_p384");
    const Bytes own = toBytes(encodedOf(*certificateIn("rsa_with_attributes"))), foreign = toBytes(encodedOf(*another));
    {
        const CertificateStore store(
            CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, storeName));
        ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), another.get(), CERT_STORE_ADD_NEW, nullptr));
    }
    const KeyPlace signing{"0123", PROV_RSA_FULL, AT_SIGNATURE};
    const KeyPlace exchange{"0123", PROV_RSA_FULL, AT_KEYEXCHANGE};
    EXPECT_EQ(UserStore(storeName).put(own, &signing), Placed::added);
    EXPECT_EQ(UserStore(storeName).put(own, &signing), Placed::unchanged);
    EXPECT_EQ(UserStore(storeName).put(own, &exchange), Placed::added);
    EXPECT_EQ(UserStore(storeName).put(own, &exchange), Placed::unchanged);
    EXPECT_EQ(UserStore(storeName).put(foreign, &signing), Placed::somebodyElses);
    EXPECT_TRUE(UserStore(storeName).leadsToProvider(own));
    EXPECT_FALSE(UserStore(storeName).leadsToProvider(foreign));
    EXPECT_EQ(UserStore(storeName).marked(), std::vector<Bytes>{own});
    UserStore(storeName).remove(own);
    EXPECT_EQ(UserStore(storeName).marked(), std::vector<Bytes>());
    EXPECT_EQ(UserStore(storeName).put(foreign, nullptr), Placed::somebodyElses) << "it is still there";
    clear();
}

} // namespace
} // namespace quelta::tools
