// The reply readers of the three certificate-keyed seal lists. Each takes the
// server's code/message/data reply; a code not 0, or no data, goes to the last
// error with the message and is the result (0 included). Seals are appended.
#pragma once

#include <string>
#include <vector>

#include "KXCommonType.h"

// data.sealList: Base64 XML seals (or, with sealDataType 1, seals kept even
// when their XML fails); widths and heights in millimetres unless keepPixels.
long OnParseSealListRes(const std::string& text, std::vector<_seal_Info_s>& seals, bool keepPixels);
// data.seals: Base64 XML seals, each given data.certB64.
long OnParseSealListRes2(const std::string& text, std::vector<_seal_Info_s>& seals);
// data: an array of ASN.1 seals under asnBase64.
long OnParseRBNSealListRes(const std::string& text, std::vector<_seal_Info_s>& seals);
// data.accessToken, empty when absent.
long OnParseRBNTokenRes(const std::string& text, std::string& accessToken);
