// Structured exceptions: processor faults described by an exception record and the registers of
// the fault, handed to a per-thread translator that turns them into C++ exceptions.
//
//   void Translate(unsigned code, EXCEPTION_POINTERS* pointers) { throw MyFault(code, pointers); }
//   _set_se_translator(&Translate);  // on each thread that wants its faults as exceptions
//   try { RunRiskyCode(); } catch (const MyFault& fault) { ... }  // the thread goes on
//
// On Linux the faults are the synchronous signals SIGSEGV, SIGBUS, SIGFPE and SIGILL. The first
// translator installed in the process installs a handler for the four of them; on a thread with
// a translator, a fault raised by the processor calls the translator with the Windows exception
// code and the registers taken from the signal's context, and the exception it throws unwinds out
// of the signal frame into the faulting code's callers. Signals sent by kill() or raise() are not
// faults. On threads without a translator, and when a translator returns instead of throwing, the
// signal takes the course it had before: the handler installed earlier is called, or the default
// action ends the process as it would have without this layer.
//
// Requirements on the faulting code and on the translator:
// - Code that may fault while a translator is installed must be compiled with
//   -fnon-call-exceptions, so that its unwind tables cover instructions that trap; without it the
//   throw finds no unwind information and the process terminates.
// - The translator runs inside the signal handler. It allocates (the thrown exception, and
//   usually the object it carries) and throws, which is not async-signal-safe: a fault inside the
//   allocator, or while the thread holds a lock the translator needs, deadlocks or corrupts the
//   heap. Translate faults of ordinary code, not of the memory manager.
// - The record and the context behind EXCEPTION_POINTERS live only during the call; a translator
//   copies what it keeps.
// - Under ThreadSanitizer the handler runs from the sanitizer's own signal frames, which have no
//   unwind information: a translator's exception cannot leave them and the process terminates.
//   Fault translation needs a build without ThreadSanitizer.
// - Stack overflows are not translated (there is no stack left to run the handler on); they end
//   the process.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

using PVOID = void*;

// Exception codes of the processor faults.
inline constexpr DWORD EXCEPTION_DATATYPE_MISALIGNMENT = 0x80000002u;
inline constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005u;
inline constexpr DWORD EXCEPTION_IN_PAGE_ERROR = 0xC0000006u;
inline constexpr DWORD EXCEPTION_ILLEGAL_INSTRUCTION = 0xC000001Du;
inline constexpr DWORD EXCEPTION_ARRAY_BOUNDS_EXCEEDED = 0xC000008Cu;
inline constexpr DWORD EXCEPTION_FLT_DENORMAL_OPERAND = 0xC000008Du;
inline constexpr DWORD EXCEPTION_FLT_DIVIDE_BY_ZERO = 0xC000008Eu;
inline constexpr DWORD EXCEPTION_FLT_INEXACT_RESULT = 0xC000008Fu;
inline constexpr DWORD EXCEPTION_FLT_INVALID_OPERATION = 0xC0000090u;
inline constexpr DWORD EXCEPTION_FLT_OVERFLOW = 0xC0000091u;
inline constexpr DWORD EXCEPTION_FLT_STACK_CHECK = 0xC0000092u;
inline constexpr DWORD EXCEPTION_FLT_UNDERFLOW = 0xC0000093u;
inline constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094u;
inline constexpr DWORD EXCEPTION_INT_OVERFLOW = 0xC0000095u;
inline constexpr DWORD EXCEPTION_PRIV_INSTRUCTION = 0xC0000096u;
inline constexpr DWORD EXCEPTION_STACK_OVERFLOW = 0xC00000FDu;

inline constexpr DWORD EXCEPTION_NONCONTINUABLE = 0x1u;
inline constexpr DWORD EXCEPTION_MAXIMUM_PARAMETERS = 15;

// One exception; `ExceptionRecord` names the exception raised while this one was handled, if any.
// For access violations, misalignments and in-page errors the parameters are the kind of access
// (0 read, 1 write, 8 instruction fetch) and the address that faulted.
struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;
  EXCEPTION_RECORD* ExceptionRecord;
  PVOID ExceptionAddress;
  DWORD NumberParameters;
  ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};
using PEXCEPTION_RECORD = EXCEPTION_RECORD*;

struct M128A {
  ULONGLONG Low;
  LONGLONG High;
};

// The FXSAVE image of the x87, MMX and SSE state.
struct XMM_SAVE_AREA32 {
  WORD ControlWord;
  WORD StatusWord;
  BYTE TagWord;
  BYTE Reserved1;
  WORD ErrorOpcode;
  DWORD ErrorOffset;
  WORD ErrorSelector;
  WORD Reserved2;
  DWORD DataOffset;
  WORD DataSelector;
  WORD Reserved3;
  DWORD MxCsr;
  DWORD MxCsr_Mask;
  M128A FloatRegisters[8];
  M128A XmmRegisters[16];
  BYTE Reserved4[96];
};
static_assert(sizeof(XMM_SAVE_AREA32) == 512);

inline constexpr DWORD CONTEXT_AMD64 = 0x00100000u;
inline constexpr DWORD CONTEXT_CONTROL = CONTEXT_AMD64 | 0x1u;
inline constexpr DWORD CONTEXT_INTEGER = CONTEXT_AMD64 | 0x2u;
inline constexpr DWORD CONTEXT_SEGMENTS = CONTEXT_AMD64 | 0x4u;
inline constexpr DWORD CONTEXT_FLOATING_POINT = CONTEXT_AMD64 | 0x8u;
inline constexpr DWORD CONTEXT_DEBUG_REGISTERS = CONTEXT_AMD64 | 0x10u;
inline constexpr DWORD CONTEXT_FULL = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_FLOATING_POINT;

// The x86-64 registers at an exception, in the Windows layout. A fault's context has the
// control, integer and segment registers and, when the kernel saved it, the floating-point state
// (ContextFlags says which). SegDs and SegEs are not saved by the kernel and read 0; the debug
// and vector-extension fields are 0.
struct alignas(16) CONTEXT {
  DWORD64 P1Home, P2Home, P3Home, P4Home, P5Home, P6Home;
  DWORD ContextFlags;
  DWORD MxCsr;
  WORD SegCs, SegDs, SegEs, SegFs, SegGs, SegSs;
  DWORD EFlags;
  DWORD64 Dr0, Dr1, Dr2, Dr3, Dr6, Dr7;
  DWORD64 Rax, Rcx, Rdx, Rbx, Rsp, Rbp, Rsi, Rdi;
  DWORD64 R8, R9, R10, R11, R12, R13, R14, R15;
  DWORD64 Rip;
  XMM_SAVE_AREA32 FltSave;
  M128A VectorRegister[26];
  DWORD64 VectorControl;
  DWORD64 DebugControl, LastBranchToRip, LastBranchFromRip, LastExceptionToRip,
      LastExceptionFromRip;
};
using PCONTEXT = CONTEXT*;

struct EXCEPTION_POINTERS {
  PEXCEPTION_RECORD ExceptionRecord;
  PCONTEXT ContextRecord;
};
using PEXCEPTION_POINTERS = EXCEPTION_POINTERS*;

// Called with the exception code and the exception's record and context; throws.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C runtime's names
using _se_translator_function = void (*)(unsigned int, EXCEPTION_POINTERS*);

// Installs `translator` for the calling thread (null removes it) and returns the thread's
// previous one.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
N7_EXPORT _se_translator_function _set_se_translator(_se_translator_function translator);
