// libn7utility: every public header of the library.
#pragma once

// Platform layer: Win32 and framework names over Linux.
#include "platform/CString.h"
#include "platform/Clock.h"
#include "platform/ComError.h"
#include "platform/EventLog.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "platform/FormatMessage.h"
#include "platform/KernelObjects.h"
#include "platform/LocalMemory.h"
#include "platform/ManualClock.h"
#include "platform/MessageBox.h"
#include "platform/N7DateTime.h"
#include "platform/NoDestructor.h"
#include "platform/Object.h"
#include "platform/Services.h"
#include "platform/Registry.h"
#include "platform/StructuredExceptions.h"
#include "platform/SyncObjects.h"
#include "platform/Thread.h"
#include "platform/Time.h"
#include "platform/windows_types.h"

// Core services.
#include "core/base64.h"
#include "core/cpu.h"
#include "core/error.h"
#include "core/refcount.h"
#include "core/safe_cast.h"
#include "core/serialize.h"
#include "core/text.h"
#include "core/trace.h"
#include "core/utf8.h"

// Cryptographic engine.
#include "n7crypto/digest.h"
#include "n7crypto/errors.h"
#include "n7crypto/key.h"
#include "n7crypto/pbkdf2.h"
#include "n7crypto/random_provider.h"
#include "n7crypto/srp.h"

// XML tokenizer and pull reader.
#include "n7xml/reader.h"
#include "n7xml/string_tokenizer.h"

// The library's families.
#include "Utility/Authentication.h"
#include "Utility/Date.h"
#include "Utility/DirectoryChangeNotifier.h"
#include "Utility/EventLog.h"
#include "Utility/ExceptionWrappers.h"
#include "Utility/ReadWriteLock.h"
#include "Utility/RegistryKey.h"
#include "Utility/Scheduler.h"
#include "Utility/SystemProbes.h"
#include "Utility/ThreadPool.h"
#include "Utility/TraceDebugCompat.h"
#include "Utility/WaitableObjects.h"
