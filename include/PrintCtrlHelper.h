// The print-control interface: how many prints of a document are left, under
// its print identifier. Two services implement it, told apart by Version.
#pragma once

#include <string>

#include "KXExport.h"

class KX_API PrintCtrlHelper {
public:
    PrintCtrlHelper();
    PrintCtrlHelper(const PrintCtrlHelper& other);
    PrintCtrlHelper& operator=(const PrintCtrlHelper& other);
    // Not virtual: objects are released through their concrete type, chosen by Version.
    ~PrintCtrlHelper();

    virtual long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) = 0;
    virtual long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) = 0;

    // The version that made the object; 0 for one constructed directly.
    long Version;
};
