/// @file
/// Exported free functions of the server frame.
#pragma once

#include <string>

#include "KXCommonType.h"
#include "KXExport.h"
#include "KXServerBase.h"

/// The library's version, "MAJOR.MINOR.PATCH" (the SONAME carries MAJOR).
KX_API const char* KX_GetVersion();

/// Reads the server description of a configuration section: SerType, Host
/// (into ServerIp), Port, ProjectID and ProjectSecret (deciphered; a secret
/// stored in clear is taken as it is). Keys absent from the store give their
/// defaults. Always 0.
KX_API long KX_GetServerConfig(const std::string& section, _init_Info_s& info);

/// "3.0" -> 2, "Agent" -> 4 (ignoring case); an empty text gives defaultType
/// unless that is -1. 0, or 10001 with serverType untouched.
KX_API long KX_GetServerTypeByStr(const std::string& text, int& serverType, int defaultType);

/// Settles the authorization value a legacy server of version 5.3 wants in its
/// head, and keeps what it learned in info. serverVer, when info has none, and
/// for "5.3" authorizationType and authorization are read from section. Type
/// 1: strAuthorization is info.authorization; type 2: it is fetched from that
/// URL (an empty answer turns info to type 1 with no value). strAuthorization
/// is emptied first. 0, or the code of the fetch.
KX_API long KX_InkwellCompatible(_init_Info_s& info, std::string& strAuthorization,
                                 const std::string& section);

/// Asks the web service for the services of a certificate or UKey; result gets
/// the reply's data as JSON text. A GET of [KXServerApi] CertServiceQuery and
/// CertServiceQueryUri with certSn and ukeyNum as query values. result is
/// emptied first. 0, 10005 when both arguments are empty, or the code of the
/// request or of the server. Exported by its plain name.
KX_EXTERN_C KX_API long KXSER_CertServiceQuery(const char* certSn, const char* ukeyNum,
                                               std::string& result);
