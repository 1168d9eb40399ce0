/// @file
/// Puts a certificate to a server for checking: the cloud platform (XML) or,
/// with SerType 4, the agent (JSON).
#pragma once

#include <string>

#include "KXExport.h"
#include "KXServerBase.h"

/// Checks a certificate at the server of its description: the cloud
/// platform, or the agent when SerType is 4.
class KX_API CCloudCheckCert : public KXServerBase {
public:
    /// No description; CheckCert then gives 10046.
    CCloudCheckCert();
    /// Copies the description and strCheckUri.
    CCloudCheckCert(const CCloudCheckCert& other);
    /// Copies the description and strCheckUri.
    CCloudCheckCert& operator=(const CCloudCheckCert& other);
    /// Not virtual, like its base's.
    ~CCloudCheckCert();

    /// Checks cert, a certificate in Base64 (DER): 0 when it passed; 10046 without a
    /// successful Init; 32004 when the platform refused it; 10003 for a reply
    /// without a result; a transport or server code otherwise.
    long CheckCert(const std::string& cert);

    /// Path of the last check, from [KXServerApi] CheckCert or CheckCertAgent.
    std::string strCheckUri;

private:
    long CheckCertByCloudPlatform(const std::string& cert);
    long CheckCertByAgentIntegrate(const std::string& cert);
};
