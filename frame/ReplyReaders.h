// The reply readers of the library, chosen by name by each operation's call.
// Each reads a reply the transport accepted (errCode 0, the raw text in msg)
// and returns the final code; data gets what the operation takes its fields
// from. Last errors for what a server said are set here; those for transport
// failures by the call.
#pragma once

#include <json/json.h>

#include <string>

#include "KXCommonType.h"

enum class KXReply {
    CodeEnvelope,     // {"code","message","data"}: data is "data"
    ErrCodeEnvelope,  // {"errCode","msg","data"}: data is "data"
    ServiceEnvelope,  // the web service's code/message/data: the raw reply stands in
                      // for an empty message, data is "data"
    OpenApi,          // the seal server's flat {"errCode","msg",...}: data is the object
    Legacy,           // the legacy authorization URL's {"errCode","msg","data"}
    CloudCheckXml,    // <result><retcode>N</retcode></result>: no data
    PrintCtrl,        // the print-control service's {"errCode","msg","data"}: data is "data"
    None,             // not read: any accepted reply is success, no data
};

long KXReadReply(KXReply reply, KXReqResult& result, Json::Value& data);

// The seal server's reply check: a JSON object whose errCode (absent or no
// integer: 10027) decides; a non-zero one goes to the last error with msg.
long ParseOpenApiReply(const std::string& text, Json::Value& root);

// The print-control service's reply check: a JSON object whose errCode (absent
// or no integer: 10027) decides; a non-zero one goes to the last error with
// msg, empty or not. On 0 data gets "data", null when there is none.
long ParsePrintCtrlReply(const std::string& text, Json::Value& data);

// The reply envelope of IWK_ServerForword, {"errorCode":N,"result":"..."}:
// 10001 when it is no JSON object or errorCode is no integer (absent counts
// as 0); a non-zero errorCode is the code; on 0 text gets result.
long KXReadForwardReply(const std::string& reply, std::string& text);

// An integer counts as itself, null (an absent key) as 0, text by its leading
// decimal number (so "401" is 401 and text without digits is 0). Anything
// else, or a number outside int range, is unusable: false.
bool KXReadStatus(const Json::Value& value, int& code);
