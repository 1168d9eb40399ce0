// The two general reply envelopes: {"code","message","data"} and {"errCode","msg","data"}.
#pragma once

#include <json/json.h>

#include "KXCommonType.h"
#include "KXExport.h"

// Both return the final code and leave it in result.errCode. On success data
// holds the payload (null when absent) and result.msg still the raw reply; on
// failure result.msg holds the text for the caller. A reply that is no JSON
// object, or whose status is not a number or decimal text in int range, gives
// 10003.
KX_API long ParseCodeEnvelope(KXReqResult& result, Json::Value& data);
KX_API long ParseErrCodeEnvelope(KXReqResult& result, Json::Value& data);
