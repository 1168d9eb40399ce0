// The process-wide state of CCorvaneApi's hourly check.
#pragma once

class CCorvaneApi;

// The object the check looks at: set by each default construction, cleared
// by the destruction of any object.
extern CCorvaneApi* pCurrentCorvaneApi;
// The running timer's id (0 before the first Init).
extern int iTimerId;
