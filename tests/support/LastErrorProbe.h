// This thread's last error, as tests look at it.
#pragma once

#include <string>

namespace kxtest {

// Leaves (-1, "marker") as the last error, so a test can tell whether an
// operation wrote one.
void MarkLastError();
// "code text", or "<none>" when this thread has none.
std::string LastError();
// The last error is exactly (code, text).
void ExpectLastError(long code, const std::string& text);
// The last error is still the marker.
void ExpectLastErrorMarked();

}  // namespace kxtest
