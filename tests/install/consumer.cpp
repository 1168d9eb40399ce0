// Builds against an installed tree alone and uses both libraries.
#include <KXServerApi.h>
#include <KXUtils.h>

#include <cstdio>

int main() {
    int type = -1;
    if (KX_GetServerTypeByStr("Agent", type, -1) != 0 || type != 4) return 1;
    IWK_SetLastError(10005);
    long code = 0;
    std::string text;
    if (!IWK_GetLastError(code, text) || code != 10005) return 2;
    std::printf("consumer ok: type %d, last error %ld\n", type, code);
    return 0;
}
