/// @file
/// Records and reporting: sign records handed to the seal software's local
/// plug-in, UKey events posted to a URL the site configures, and usage reports
/// sent without waiting for them.
#pragma once

#include "KXExport.h"

/// Hands a finished signature to the plug-in (loaded on first use from
/// plugins/seal/kxoes/ below this library's directory). recordType 3 sends
/// certB64 and ignores docPath; any other type sends the base name of docPath
/// when one is given. 0, 10005 (an empty value), 10001 (no plug-in, or one
/// without both exports), or the plug-in's own code.
KX_API long KX_SaveSignRecord(int recordType, const char* signDataB64, const char* signValueB64,
                              const char* docPath, const char* certB64);

/// Posts {"ukeySN","certSN","certCN"} to [KXCertBase] eventCallBackUrl; a null
/// pointer leaves its key out. No URL configured: 0 and nothing sent. All three
/// empty: 10005. Otherwise the code of the request. The last argument is not read.
KX_API long KX_UKeyEventUpload(const char* ukeySN, const char* certSN, const char* certCN,
                               long reserved);

/// Adds localMac, localTime and clientVersion to the JSON object msg and posts
/// it on a thread of its own to the report URL of recordType ([KXServerApi]
/// ReportHostPort and, for types 1 to 3, the path of signing, encrypting or
/// decrypting reports); returns at once with 0, or 10005 (msg empty) or
/// 10001 (msg no JSON object). Delivery is not reported. Exported by its plain name.
KX_EXTERN_C KX_API long KXSER_UploadRecord(int recordType, const char* msg);
