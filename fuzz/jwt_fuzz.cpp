// Any bytes as a token whose payload is read.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KXUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string payload;
    IWK_JWTDecode(std::string(reinterpret_cast<const char*>(data), size), payload);
    return 0;
}
