// Out-of-line members of the shared records, so that their type information
// lives in one library.
#include "KXCommonType.h"

KXReqResult::~KXReqResult() = default;
