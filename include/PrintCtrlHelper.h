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

// Makes and initialises the print-control object of version (1: the seal
// server, CKXSealOpenApi; 3: the print-control service, KXPrintCtrl) from its
// configuration section. Whatever *ppHelper held is released first; on any
// failure it stays null. Another version gives 25034, a null ppHelper 10005.
KX_API long KX_CreatePrintCtrl(long version, PrintCtrlHelper** ppHelper);
// Destroys an object of KX_CreatePrintCtrl by its Version and nulls *ppHelper.
KX_API void KX_ReleasePrintCtrl(PrintCtrlHelper** ppHelper);
