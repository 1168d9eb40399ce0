// The masking of log text. Internal to libKXUtils.
#pragma once

#include <string>

namespace kxutils {

// Appends to out the text with every registered secret (IWK_RegisterSecret) and the values
// of the secret keys (password, passwd, pwd, signPwd, secret, ProjectSecret,
// appSecret, X-KX-Signature; any case) replaced by "******". Key forms:
//   key=value      a query, form or log text; quotes ' or " enclose a value
//   key: value     a header line, or "key:value" in a log text; as key=value
//   "key":"value"  JSON, also escaped (\"key\":\"value\") and with a number
// A plain value (key=, key:) ends at the first blank, tab, CR, LF, '"', '\'',
// ',', ';', '&' or '>', or at the end: in a framed line <src [n] - fn> <"text">
// the frame's closing "> is never hidden. "key::" is a C++ scope, no key.
void AppendMaskedLogText(const std::string& text, std::string& out);

}  // namespace kxutils
