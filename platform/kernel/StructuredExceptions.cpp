#include "n7utility/platform/kernel/StructuredExceptions.h"

#include <pthread.h>
#include <signal.h>
#include <ucontext.h>

#include <cstring>
#include <iterator>
#include <mutex>

namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr std::size_t kSignalCount = std::size(kFaultSignals);

// What each fault signal did before this layer's handler took it over.
struct sigaction g_previous[kSignalCount];
std::once_flag g_installed;

// Trivially initialised, so reading them in the signal handler runs no initialisation code.
thread_local _se_translator_function t_translator = nullptr;
// Set while the thread's translator runs: a fault inside the translator is not translated again.
thread_local bool t_translating = false;

// Clears t_translating when the translator returns or its exception leaves the handler.
class TranslatingScope {
 public:
  TranslatingScope() { t_translating = true; }
  ~TranslatingScope() { t_translating = false; }
  TranslatingScope(const TranslatingScope&) = delete;
  TranslatingScope& operator=(const TranslatingScope&) = delete;
};

// Access kinds of the fault parameters, and the page-fault error-code bits they come from.
constexpr ULONG_PTR kReadAccess = 0;
constexpr ULONG_PTR kWriteAccess = 1;
constexpr ULONG_PTR kExecuteAccess = 8;
constexpr greg_t kPageFaultWrite = 0x2;
constexpr greg_t kPageFaultInstructionFetch = 0x10;

std::size_t IndexOf(int signal_number) {
  std::size_t index = 0;
  while (kFaultSignals[index] != signal_number) ++index;
  return index;
}

DWORD FloatingPointCode(int si_code) {
  switch (si_code) {
    case FPE_INTDIV:
      return EXCEPTION_INT_DIVIDE_BY_ZERO;
    case FPE_INTOVF:
      return EXCEPTION_INT_OVERFLOW;
    case FPE_FLTDIV:
      return EXCEPTION_FLT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF:
      return EXCEPTION_FLT_OVERFLOW;
    case FPE_FLTUND:
      return EXCEPTION_FLT_UNDERFLOW;
    case FPE_FLTRES:
      return EXCEPTION_FLT_INEXACT_RESULT;
    case FPE_FLTSUB:
      return EXCEPTION_ARRAY_BOUNDS_EXCEEDED;
    default:
      return EXCEPTION_FLT_INVALID_OPERATION;
  }
}

DWORD ExceptionCode(int signal_number, int si_code) {
  switch (signal_number) {
    case SIGSEGV:
      return EXCEPTION_ACCESS_VIOLATION;
    case SIGBUS:
      return si_code == BUS_ADRALN ? EXCEPTION_DATATYPE_MISALIGNMENT : EXCEPTION_IN_PAGE_ERROR;
    case SIGFPE:
      return FloatingPointCode(si_code);
    default:
      return si_code == ILL_PRVOPC || si_code == ILL_PRVREG ? EXCEPTION_PRIV_INSTRUCTION
                                                            : EXCEPTION_ILLEGAL_INSTRUCTION;
  }
}

ULONG_PTR AccessKind(const mcontext_t& registers) {
  const greg_t error = registers.gregs[REG_ERR];
  if ((error & kPageFaultInstructionFetch) != 0) return kExecuteAccess;
  return (error & kPageFaultWrite) != 0 ? kWriteAccess : kReadAccess;
}

void FillRecord(int signal_number, const siginfo_t& info, const ucontext_t& context,
                EXCEPTION_RECORD& record) {
  record.ExceptionCode = ExceptionCode(signal_number, info.si_code);
  // The instruction pointer is the address of the faulting instruction.
  const greg_t rip = context.uc_mcontext.gregs[REG_RIP];
  record.ExceptionAddress = reinterpret_cast<PVOID>(rip);  // NOLINT(performance-no-int-to-ptr)
  if (signal_number == SIGSEGV || signal_number == SIGBUS) {
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = AccessKind(context.uc_mcontext);
    record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(info.si_addr);
  }
}

DWORD64 Register(const mcontext_t& registers, int index) {
  return static_cast<DWORD64>(registers.gregs[index]);
}

void FillContext(const ucontext_t& context, CONTEXT& out) {
  const mcontext_t& registers = context.uc_mcontext;
  out.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS;
  out.Rax = Register(registers, REG_RAX);
  out.Rcx = Register(registers, REG_RCX);
  out.Rdx = Register(registers, REG_RDX);
  out.Rbx = Register(registers, REG_RBX);
  out.Rsp = Register(registers, REG_RSP);
  out.Rbp = Register(registers, REG_RBP);
  out.Rsi = Register(registers, REG_RSI);
  out.Rdi = Register(registers, REG_RDI);
  out.R8 = Register(registers, REG_R8);
  out.R9 = Register(registers, REG_R9);
  out.R10 = Register(registers, REG_R10);
  out.R11 = Register(registers, REG_R11);
  out.R12 = Register(registers, REG_R12);
  out.R13 = Register(registers, REG_R13);
  out.R14 = Register(registers, REG_R14);
  out.R15 = Register(registers, REG_R15);
  out.Rip = Register(registers, REG_RIP);
  out.EFlags = static_cast<DWORD>(Register(registers, REG_EFL));
  // The kernel packs cs, gs, fs and ss into one word, 16 bits each.
  const DWORD64 segments = Register(registers, REG_CSGSFS);
  out.SegCs = static_cast<WORD>(segments);
  out.SegGs = static_cast<WORD>(segments >> 16);
  out.SegFs = static_cast<WORD>(segments >> 32);
  out.SegSs = static_cast<WORD>(segments >> 48);
  if (registers.fpregs != nullptr) {
    static_assert(sizeof(*registers.fpregs) == sizeof(out.FltSave));
    std::memcpy(&out.FltSave, registers.fpregs, sizeof(out.FltSave));
    out.MxCsr = out.FltSave.MxCsr;
    out.ContextFlags |= CONTEXT_FLOATING_POINT;
  }
}

// The signal is not translated: it takes the course it had before this layer.
void ForwardToPrevious(int signal_number, siginfo_t* info, void* context) {
  const struct sigaction& previous = g_previous[IndexOf(signal_number)];
  if ((previous.sa_flags & SA_SIGINFO) != 0) {
    previous.sa_sigaction(signal_number, info, context);
    return;
  }
  if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal_number);
    return;
  }
  const bool is_fault = info->si_code > 0;
  if (previous.sa_handler == SIG_IGN && !is_fault) return;
  // The default action: a fault that returns from here traps again and ends the process then;
  // a signal that was sent is raised again. The process ends either way, so the handler is gone
  // for every thread.
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  sigemptyset(&default_action.sa_mask);
  sigaction(signal_number, &default_action, nullptr);
  if (!is_fault) raise(signal_number);
}

void OnFault(int signal_number, siginfo_t* info, void* raw_context) {
  const _se_translator_function translator = t_translator;
  if (translator == nullptr || t_translating || info->si_code <= 0) {
    ForwardToPrevious(signal_number, info, raw_context);
    return;
  }
  const auto& context = *static_cast<const ucontext_t*>(raw_context);
  EXCEPTION_RECORD record{};
  CONTEXT registers{};
  FillRecord(signal_number, *info, context, record);
  FillContext(context, registers);
  EXCEPTION_POINTERS pointers{&record, &registers};
  // Leaving the handler by a throw skips the return through the kernel that would put the
  // thread's signal mask back; the mask of the faulting code is put back now instead.
  pthread_sigmask(SIG_SETMASK, &context.uc_sigmask, nullptr);
  {
    const TranslatingScope scope;
    translator(record.ExceptionCode, &pointers);
  }
  ForwardToPrevious(signal_number, info, raw_context);
}

void InstallHandlers() {
  struct sigaction action {};
  action.sa_sigaction = &OnFault;
  // SA_NODEFER: the fault's own signal stays deliverable on the thread after the translator's
  // exception has left the handler.
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < kSignalCount; ++i) {
    sigaction(kFaultSignals[i], &action, &g_previous[i]);
  }
}

}  // namespace

_se_translator_function _set_se_translator(_se_translator_function translator) {
  if (translator != nullptr) std::call_once(g_installed, &InstallHandlers);
  const _se_translator_function previous = t_translator;
  t_translator = translator;
  return previous;
}
