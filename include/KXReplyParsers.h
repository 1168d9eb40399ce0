/// @file
/// The two general reply envelopes: {"code","message","data"} and {"errCode","msg","data"}.
#pragma once

#include <json/json.h>

#include "KXCommonType.h"
#include "KXExport.h"

/// Reads result.msg as {"code","message","data"}: the final code (also left
/// in result.errCode), with the payload in data on 0 (null when absent) and
/// the server's message in result.msg otherwise. An absent code reads as 0; a
/// reply that is no JSON object, or a code that is no number or decimal text
/// in int range, gives 10003. A result whose errCode is already not 0 (the
/// request failed) keeps it.
KX_API long ParseCodeEnvelope(KXReqResult& result, Json::Value& data);
/// The same for {"errCode","msg","data"}.
KX_API long ParseErrCodeEnvelope(KXReqResult& result, Json::Value& data);
