// libn7utility: every public header of the library, and nothing else: no test helpers (the
// manual clock is <n7utility/platform/kernel/ManualClock.h>, for a program's own tests) and no
// internals.
#pragma once

// Platform layer: Win32 and framework names over Linux.
#include <n7utility/platform/base/Object.h>
#include <n7utility/platform/base/WindowsTypes.h>
#include <n7utility/platform/framework/Archive.h>
#include <n7utility/platform/framework/CString.h>
#include <n7utility/platform/framework/ComError.h>
#include <n7utility/platform/framework/Document.h>
#include <n7utility/platform/framework/Exceptions.h>
#include <n7utility/platform/framework/File.h>
#include <n7utility/platform/framework/Map.h>
#include <n7utility/platform/framework/MemFile.h>
#include <n7utility/platform/framework/ModuleState.h>
#include <n7utility/platform/framework/SyncObjects.h>
#include <n7utility/platform/kernel/Clock.h>
#include <n7utility/platform/kernel/KernelObjects.h>
#include <n7utility/platform/kernel/N7DateTime.h>
#include <n7utility/platform/kernel/StructuredExceptions.h>
#include <n7utility/platform/kernel/Thread.h>
#include <n7utility/platform/kernel/Time.h>
#include <n7utility/platform/system/EventLog.h>
#include <n7utility/platform/system/FormatMessage.h>
#include <n7utility/platform/system/LocalMemory.h>
#include <n7utility/platform/system/MessageBox.h>
#include <n7utility/platform/system/Registry.h>
#include <n7utility/platform/system/Resources.h>
#include <n7utility/platform/system/Services.h>

// Core services.
#include <n7utility/core/base64.h>
#include <n7utility/core/cpu.h>
#include <n7utility/core/error.h>
#include <n7utility/core/refcount.h>
#include <n7utility/core/safe_cast.h>
#include <n7utility/core/serialize.h>
#include <n7utility/core/text.h>
#include <n7utility/core/trace.h>
#include <n7utility/core/utf8.h>

// Cryptographic engine.
#include <n7utility/n7crypto/digest.h>
#include <n7utility/n7crypto/errors.h>
#include <n7utility/n7crypto/key.h>
#include <n7utility/n7crypto/pbkdf2.h>
#include <n7utility/n7crypto/random_provider.h>
#include <n7utility/n7crypto/srp.h>
#include <n7utility/n7crypto/wipe.h>

// XML tokenizer and pull reader.
#include <n7utility/n7xml/reader.h>
#include <n7utility/n7xml/string_tokenizer.h>

// The library's families.
#include <n7utility/Utility/Authentication.h>
#include <n7utility/Utility/Date.h>
#include <n7utility/Utility/DirectoryChangeNotifier.h>
#include <n7utility/Utility/ErrorPool.h>
#include <n7utility/Utility/EventLog.h>
#include <n7utility/Utility/ExceptionWrappers.h>
#include <n7utility/Utility/IStringAndDwordMapper.h>
#include <n7utility/Utility/N7Document.h>
#include <n7utility/Utility/ReadWriteLock.h>
#include <n7utility/Utility/RegistryKey.h>
#include <n7utility/Utility/ResourceMgr.h>
#include <n7utility/Utility/Scheduler.h>
#include <n7utility/Utility/StringTable.h>
#include <n7utility/Utility/SystemProbes.h>
#include <n7utility/Utility/ThreadPool.h>
#include <n7utility/Utility/TraceDebugCompat.h>
#include <n7utility/Utility/WaitableObjects.h>
