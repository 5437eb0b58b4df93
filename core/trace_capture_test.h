// Test helper: collects the messages of one trace topic, with the topic's level raised for the
// helper's lifetime.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "n7utility/core/trace.h"

namespace n7trace::test_support {

class TraceCapture : public TraceSink {
 public:
  struct Message {
    std::string function, file, text;
    int level, msg_type, user_msg_type;
    bool operator==(const Message&) const = default;
  };

  TraceCapture(std::string topic, std::int8_t initial_level, std::int8_t level)
      : name_(std::move(topic)),
        topic_(get_trace_mgr().topic_handle(name_, 0, initial_level)->topic),
        saved_level_(topic_->trace_level()) {
    topic_->set_trace_level(level);
    get_trace_mgr().add_sink(this);
  }
  ~TraceCapture() override {
    get_trace_mgr().remove_sink(this);
    topic_->set_trace_level(saved_level_);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  void write(const TraceRecord& record) override {
    if (record.topic != name_) return;
    std::lock_guard lock(mutex_);
    messages_.push_back({std::string(record.function), std::string(record.file),
                         std::string(record.text), record.level, record.msg_type,
                         record.user_msg_type});
  }

  // The messages so far, oldest first; forgets them.
  std::vector<Message> Take() {
    std::lock_guard lock(mutex_);
    return std::exchange(messages_, {});
  }

 private:
  const std::string name_;
  TraceTopic* const topic_;
  const std::int8_t saved_level_;
  std::mutex mutex_;
  std::vector<Message> messages_;
};

}  // namespace n7trace::test_support
