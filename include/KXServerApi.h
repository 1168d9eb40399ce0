// Exported free functions of the server frame.
#pragma once

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

// Reads the server description of a configuration section. Always 0.
KX_API long KX_GetServerConfig(const std::string& section, _init_Info_s& info);

// "3.0" -> 2, "Agent" -> 4 (ignoring case); an empty text gives defaultType
// unless that is -1. 0, or 10001 with serverType untouched.
KX_API long KX_GetServerTypeByStr(const std::string& text, int& serverType, int defaultType);

// Settles the authorization value a legacy server of version 5.3 wants in its
// head, and keeps what it learned in info.
KX_API long KX_InkwellCompatible(_init_Info_s& info, std::string& strAuthorization,
                                 const std::string& section);

// Asks the web service for the services of a certificate or UKey; result gets
// the reply's data as JSON text. Exported by its plain name.
KX_EXTERN_C KX_API long KXSER_CertServiceQuery(const char* certSn, const char* ukeyNum,
                                               std::string& result);
