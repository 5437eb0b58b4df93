// The trace manager's parts, open to tests: the N7_TRACE parser, the output line format and the
// manager class itself, which tests build with a configuration of their own.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "n7utility/core/mutex_internal.h"
#include "n7utility/core/trace.h"

namespace n7trace::internal {

struct TopicLevel {
  std::string topic;
  std::int8_t level;
};

struct TraceConfig {
  std::vector<TopicLevel> topics;         // in the order given
  std::optional<std::int8_t> all_topics;  // "*=level"
  std::vector<std::string> malformed;     // entries that were skipped
  std::string output_path;                // empty: standard error

  // The configured level of a topic: its own entry (the last, if named twice), else "*".
  std::optional<std::int8_t> level_for(std::string_view topic) const;
};

// Parses "Topic=level,Other Topic=level". Blanks around names and levels are ignored, empty
// entries are skipped, and an entry without a name or without a level in -128..127 is recorded in
// `malformed`.
TraceConfig parse_trace_config(std::string_view text);

// The output line of a record, ending in a newline. Line breaks in the text are written as \n
// and \r so that one message stays one line.
std::string format_trace_line(const TraceRecord& record);

// Final, and the interface's destructor is protected: never deleted through the interface.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor)
class TraceManager final : public ITraceMgr {
 public:
  // Reports malformed entries of `config` on standard error and opens its output.
  explicit TraceManager(TraceConfig config);
  ~TraceManager();
  TraceManager(const TraceManager&) = delete;
  TraceManager& operator=(const TraceManager&) = delete;

  intTopicHdl* topic_handle(std::string_view name, int flags, std::int8_t level) override;
  void add_sink(TraceSink* sink) override;
  void remove_sink(TraceSink* sink) override;

  intTopicHdl* system_topic_handle() const { return system_topic_; }

  // Hands the record to every sink and writes its line to the output, all under one lock.
  void write(const TraceRecord& record);

 private:
  struct Topic {
    Topic(std::string name, std::int8_t level) : topic(std::move(name), level), handle{&topic} {}
    TraceTopic topic;
    intTopicHdl handle;
  };

  const TraceConfig config_;
  n7core::internal::Mutex topics_mutex_;
  // Keyed by a view of the topic's own name; topics are never removed, so handles stay valid.
  std::map<std::string_view, std::unique_ptr<Topic>, std::less<>> topics_ GUARDED_BY(topics_mutex_);
  n7core::internal::Mutex output_mutex_;
  std::vector<TraceSink*> sinks_ GUARDED_BY(output_mutex_);
  std::FILE* output_ GUARDED_BY(output_mutex_);
  const bool owns_output_;
  intTopicHdl* system_topic_;
};

// The process-wide manager, configured from the environment on first use.
TraceManager& global_trace_manager();

}  // namespace n7trace::internal
