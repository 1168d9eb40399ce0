/// @file
/// Expansion of a UKey's certificate into a double certificate: four signed
/// steps whose identifiers travel through the caller.
#pragma once

#include <string>

#include "KXExport.h"
#include "KXServerBase.h"

/// Client of the certificate expansion service. The steps go in order:
/// SendExpandRequest, GetDoubleCertRequest until the certificates are ready,
/// UploadFinish; CheckServiceRequest tells whether the UKey's service time
/// still runs. The description is not checked first: an empty host fails at
/// the transport.
///
/// Every step returns 0, a transport or server code, 10003 for a reply that
/// is no code/message/data envelope, or 10110 (nothing sent) when the URL
/// would pass 1023 bytes. Out-parameters are written only on 0.
class KX_API CECertExpand : public KXServerBase {
public:
    /// The default URL templates.
    CECertExpand();
    /// Copies the description and the URL templates.
    CECertExpand(const CECertExpand& other);
    /// Copies the description and the URL templates.
    CECertExpand& operator=(const CECertExpand& other);
    /// Not virtual, like its base's.
    ~CECertExpand();

    /// Whether the service time of strId (last URL segment) has run out.
    long CheckServiceRequest(const std::string& strId, bool& expired);
    /// Files the expansion of the UKey ukeyNum with the request csr; certOptId
    /// and logId feed the later steps.
    long SendExpandRequest(const std::string& ukeyNum, const std::string& csr, long& certOptId,
                           long& logId);
    /// The certificates of the expansion certOptId: encryption and signing
    /// certificate, serial number and authorization code, with its status.
    /// Polled until status says the work is done; status -1 when the reply held none.
    long GetDoubleCertRequest(long certOptId, std::string& encCert, std::string& signCert,
                              std::string& sn, std::string& authCode, int& status);
    /// Reports the certificates written to the UKey, closing the expansion.
    long UploadFinish(long certOptId, long logId, const std::string& encryptCert,
                      const std::string& signCert, const std::string& ukeyNum);

    long lReserved1 = 0;  ///< reserved, not used by the library
    long lReserved2 = 0;  ///< reserved, not used by the library
    // URL templates; the host is ServerIp alone (Port plays no part). A
    // template whose conversions differ from the defaults' is refused (10001);
    // certOptId fills %d or %ld as a long.
    std::string strServiceTimeUrl;        ///< CheckServiceRequest: host, strId
    std::string strDoubleCertRequestUrl;  ///< SendExpandRequest: host
    std::string strDoubleCertInfoUrl;     ///< GetDoubleCertRequest: host, certOptId
    std::string strFinishCertUrl;         ///< UploadFinish: host
};
