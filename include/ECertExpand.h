// Expansion of a UKey's certificate into a double certificate: four signed
// steps whose identifiers travel through the caller.
#pragma once

#include <string>

#include "KXExport.h"
#include "KXServerBase.h"

class KX_API CECertExpand : public KXServerBase {
public:
    CECertExpand();
    CECertExpand(const CECertExpand& other);
    CECertExpand& operator=(const CECertExpand& other);
    ~CECertExpand();

    // Every step returns 0, a transport or server code, 10003 for a reply that
    // is no code/message/data envelope, or 10110 (nothing sent) when the URL
    // would pass 1023 bytes. Out-parameters are written only on 0.

    // Whether the service time of strId (last URL segment) has run out.
    long CheckServiceRequest(const std::string& strId, bool& expired);
    // Files the request; certOptId and logId feed the later steps.
    long SendExpandRequest(const std::string& ukeyNum, const std::string& csr, long& certOptId,
                           long& logId);
    // Polled until status says the work is done; status -1 when the reply held none.
    long GetDoubleCertRequest(long certOptId, std::string& encCert, std::string& signCert,
                              std::string& sn, std::string& authCode, int& status);
    long UploadFinish(long certOptId, long logId, const std::string& encryptCert,
                      const std::string& signCert, const std::string& ukeyNum);

    long lReserved1 = 0;
    long lReserved2 = 0;
    // URL templates; the host is ServerIp alone (Port plays no part). A
    // template whose conversions differ from the defaults' is refused (10001);
    // certOptId fills %d or %ld as a long.
    std::string strServiceTimeUrl;        // host, strId
    std::string strDoubleCertRequestUrl;  // host
    std::string strDoubleCertInfoUrl;     // host, certOptId
    std::string strFinishCertUrl;         // host
};
