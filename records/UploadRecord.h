// The reports still on their way, for the library's unload and for tests.
#pragma once

// Waits until no report is in flight, at most timeoutMs; true when none is.
bool KXWaitForReports(long long timeoutMs);
