#include "cms_common.h"

#include "certificates.h"
#include "der.h"

namespace quelta::cms {

Bytes issuerAndSerial(const CERT_CONTEXT& certificate)
{
    return der::sequence({viewOf(certificate.pCertInfo->Issuer), der::element(der::tagInteger, serialContent(certificate))});
}

} // namespace quelta::cms
