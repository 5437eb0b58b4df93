// Probes of the machine: the DCOM switch, whether a service runs, whether a directory can be
// written to, and which temporary directory to use.
//
// Each answers through its result only; none throws, traces or keeps state, and any thread may
// call any of them at any time.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/framework/CString.h"

// 1 when the COM library's CoInitializeEx cannot be found in this process (its module "OLE32" is
// not loaded, or lacks the function), 0 when it can. The module is never loaded for the purpose.
N7_EXPORT int IsDCOMReady();

// 1 when "EnableDCOM" under HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Ole is "Y" (either case), else
// 0, also when the key or the value is missing.
N7_EXPORT int IsDCOMEnabled();

// Writes "Y" (`enable` non-zero) or "N" to that value; 1 when written, 0 when the key is missing
// (it is not created) or cannot be written.
N7_EXPORT int DCOMEnables(int enable);

// 1 when the service is running or on its way to or from running (starting, stopping, resuming,
// pausing), 0 when it is stopped or paused, does not exist, or the service manager cannot be
// reached.
N7_EXPORT int IsServiceRunning(const wchar_t* service_name);

// Whether `path` is a directory in which a new file can be created and opened for writing. The
// probe file is removed again.
N7_EXPORT bool IsWritableDir(const CString& path);

// The temporary directory from the environment (see GetTempPathW) if it is writable, else the
// system's /tmp if that is; `out` then ends in "/". When neither is writable, returns false with
// `out` holding /tmp without a separator added.
N7_EXPORT bool GetValidTempDir(CString& out);
