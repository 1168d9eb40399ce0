/// @file
/// The print-control interface: how many prints of a document are left, under
/// its print identifier. Two services implement it, told apart by Version.
#pragma once

#include <string>

#include "KXExport.h"

/// The print-control interface, implemented by CKXSealOpenApi (version 1)
/// and KXPrintCtrl (version 3). KX_CreatePrintCtrl makes one.
class KX_API PrintCtrlHelper {
public:
    /// Version 0.
    PrintCtrlHelper();
    /// Copies Version.
    PrintCtrlHelper(const PrintCtrlHelper& other);
    /// Copies Version.
    PrintCtrlHelper& operator=(const PrintCtrlHelper& other);
    /// Not virtual: objects are released through their concrete type, chosen by Version.
    ~PrintCtrlHelper();

    /// Asks the server how many prints sPrintID allows in all (iTotal) and how
    /// many are left (iRemain). 0 or a result code.
    virtual long QueryPrintInfo(const std::string& sPrintID, int& iTotal, int& iRemain) = 0;
    /// Tells the server how many prints of sPrintID are left. 0 or a result code.
    virtual long UpdatePrintInfo(const std::string& sPrintID, const int& iRemain) = 0;

    /// The version that made the object; 0 for one constructed directly.
    long Version;
};

/// Makes and initialises the print-control object of version (1: the seal
/// server, CKXSealOpenApi; 3: the print-control service, KXPrintCtrl) from its
/// configuration section. Whatever *ppHelper held is released first; on any
/// failure it stays null. Another version gives 25034, a null ppHelper 10005.
KX_API long KX_CreatePrintCtrl(long version, PrintCtrlHelper** ppHelper);
/// Destroys an object of KX_CreatePrintCtrl by its Version and nulls *ppHelper.
/// An object of another Version is not destroyed (its class is unknown), only
/// logged; null pointers are ignored.
KX_API void KX_ReleasePrintCtrl(PrintCtrlHelper** ppHelper);
