#include "LastErrorProbe.h"

#include <gtest/gtest.h>

#include "KXUtils.h"

namespace kxtest {

void MarkLastError() {
    IWK_SetLastError(-1, "marker");
}

std::string LastError() {
    long code = 0;
    std::string text;
    return IWK_GetLastError(code, text) ? std::to_string(code) + " " + text : "<none>";
}

void ExpectLastError(long code, const std::string& text) {
    EXPECT_EQ(std::to_string(code) + " " + text, LastError());
}

void ExpectLastErrorMarked() {
    ExpectLastError(-1, "marker");
}

}  // namespace kxtest
