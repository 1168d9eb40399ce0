// The process-wide state of CCorvaneApi's hourly check.
#pragma once

#include <atomic>

class CCorvaneApi;

// The object the check looks at: set by each default construction, cleared
// by the destruction of any object. Written and read only under the lock in
// Corvane.cpp, so that the check never runs on an object that another
// thread is destroying.
extern CCorvaneApi* pCurrentCorvaneApi;
// The running timer's id (0 before the first Init); Init may run on another
// thread than the one a destructor runs on.
extern std::atomic<int> iTimerId;
