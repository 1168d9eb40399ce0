// The version the library was built as, set by the build from the project's.
#include "KXServerApi.h"

const char* KX_GetVersion() {
    return KX_VERSION;
}
