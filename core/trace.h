// The core trace services: named topics with levels, and messages written to them.
//
// A trace site asks the manager once for its topic's handle and keeps it. A message is built only
// when the handle is not null and the message's level is at most the topic's current level; the
// N7_TRACE_MESSAGE macro does that check, so a disabled site costs a load and a compare and never
// allocates:
//
//   N7_TRACE_MESSAGE(handle, 61, 2, "CScheduler::MemberThread()", "Utility/Scheduler",
//                    "Running({},{},{})") << description << context << id;
//
// The n-th "{}" of the format takes the n-th streamed argument; the message is written to the
// sinks when the TraceMessage is destroyed.
//
// Configuration, read once when the manager is first used: N7_TRACE="Topic=level,Other Topic=level"
// sets topic levels (-128..127; "*=level" sets every topic a named entry does not); output goes to
// standard error, or is appended to the file N7_TRACE_FILE names. Topics not named keep the level
// their first topic_handle() call gave. Each message is one line:
//   2026-11-22T21:10:08.123Z [tid] Topic L<level> function (file:line): text
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

#include "n7utility/platform/base/Export.h"

namespace n7trace {

// A topic: a name and its current level. Lives until the process ends.
class N7_EXPORT TraceTopic {
 public:
  explicit TraceTopic(std::string name, std::int8_t level);
  TraceTopic(const TraceTopic&) = delete;
  TraceTopic& operator=(const TraceTopic&) = delete;

  const std::string& name() const noexcept { return name_; }
  // Inline: every trace site reads it in its guard.
  std::int8_t trace_level() const noexcept { return level_.load(std::memory_order_relaxed); }
  void set_trace_level(std::int8_t level) noexcept {
    level_.store(level, std::memory_order_relaxed);
  }

 private:
  std::string name_;
  std::atomic<std::int8_t> level_;
};

// The handle a trace site keeps; its first field points to its topic.
struct intTopicHdl {
  TraceTopic* topic;
};

// One finished message, as sinks receive it.
struct TraceRecord {
  std::string_view topic;
  std::int8_t level;
  int msg_type;
  int user_msg_type;
  std::string_view function;
  std::string_view file;
  int line;
  std::string_view text;  // format with its placeholders filled
  std::chrono::system_clock::time_point time;
  std::uint32_t thread_id;
};

// Receives every finished message. write() may be called from any thread, one call at a time;
// it must not trace itself, because it is called under the lock that keeps output lines whole.
class N7_EXPORT TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

// The process-wide trace manager.
class N7_EXPORT ITraceMgr {
 public:
  // The handle of the named topic; the same handle for the same name on every call. `flags` is
  // unused (0). `level` is the topic's level when it is first made, unless N7_TRACE names it.
  virtual intTopicHdl* topic_handle(std::string_view name, int flags, std::int8_t level) = 0;

  // Sinks in addition to the configured output; the caller keeps ownership and removes the sink
  // before destroying it.
  virtual void add_sink(TraceSink* sink) = 0;
  virtual void remove_sink(TraceSink* sink) = 0;

 protected:
  ~ITraceMgr() = default;
};

N7_EXPORT ITraceMgr& get_trace_mgr();
// The trace system's own topic ("n7trace").
N7_EXPORT intTopicHdl* get_system_topic_handle();

// The guard every trace site applies before it builds a message.
inline bool trace_enabled(const intTopicHdl* handle, std::int8_t level) noexcept {
  return handle != nullptr && level <= handle->topic->trace_level();
}

// A message being built: a narrow output stream. Each streamed argument is one argument of the
// format; arguments are kept separated by one NUL character until the message is written. A
// message on a null handle is dropped; a message that cannot be built (out of memory) is dropped
// rather than thrown out of the destructor.
class N7_EXPORT TraceMessage : public std::ostream {
 public:
  TraceMessage(intTopicHdl* handle, std::int8_t level, const char* function, const char* file,
               int line, const char* format);
  ~TraceMessage() override;
  TraceMessage(const TraceMessage&) = delete;
  TraceMessage& operator=(const TraceMessage&) = delete;

  TraceMessage& msg_type(int type) {
    msg_type_ = type;
    return *this;
  }
  TraceMessage& user_msg_type(int type) {
    user_msg_type_ = type;
    return *this;
  }

  // Called before each argument is streamed: writes the separator after the first.
  void begin_argument();

 private:
  std::stringbuf buffer_;
  intTopicHdl* handle_;
  std::int8_t level_;
  const char* function_;
  const char* file_;
  int line_;
  const char* format_;
  int msg_type_ = 0;
  int user_msg_type_ = 0;
  bool has_arguments_ = false;
};

// Streams one argument of the message.
template <typename T>
TraceMessage& operator<<(TraceMessage& message, const T& argument) {
  message.begin_argument();
  static_cast<std::ostream&>(message) << argument;
  return message;
}

// Fills the n-th "{}" of `format` with the n-th NUL-separated argument of `arguments`. Missing
// arguments leave "{}" in place; surplus arguments are appended, separated by spaces.
N7_EXPORT std::string format_message(std::string_view format, std::string_view arguments,
                                     bool has_arguments);

}  // namespace n7trace

// Builds and writes a message only when the guard passes. Use as a statement followed by the
// streamed arguments.
#define N7_TRACE_MESSAGE(handle, level, subtype, function, file, format)               \
  if (!::n7trace::trace_enabled((handle), (level))) {                                  \
  } else                                                                               \
    ::n7trace::TraceMessage((handle), (level), (function), (file), __LINE__, (format)) \
        .msg_type(2)                                                                   \
        .user_msg_type(subtype)
