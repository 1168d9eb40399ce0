// Reading of a reply's status value, shared by the parsers of the library.
#pragma once

#include <json/json.h>

// An integer counts as itself, null (an absent key) as 0, text by its leading
// decimal number (so "401" is 401 and text without digits is 0). Anything
// else, or a number outside int range, is unusable: false.
bool KXReadStatus(const Json::Value& value, int& code);
