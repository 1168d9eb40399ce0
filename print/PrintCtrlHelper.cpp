// The abstract print-control interface.
#include "PrintCtrlHelper.h"

PrintCtrlHelper::PrintCtrlHelper() : Version(0) {}
PrintCtrlHelper::PrintCtrlHelper(const PrintCtrlHelper& other) : Version(other.Version) {}
PrintCtrlHelper& PrintCtrlHelper::operator=(const PrintCtrlHelper& other) {
    Version = other.Version;
    return *this;
}
PrintCtrlHelper::~PrintCtrlHelper() = default;
