// Shared by the sources of the platform client.
#pragma once

#include "frame/KXCall.h"

// Source name of every log line of the platform client.
extern const char kCorvaneSource[];
