#include "n7utility/core/trace.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <system_error>
#include <utility>

#include "n7utility/core/classic_stream.h"
#include "n7utility/core/trace_internal.h"
#include "n7utility/platform/base/NoDestructor.h"

namespace n7trace {
namespace internal {
namespace {

constexpr const char* kSystemTopicName = "n7trace";
// The trace system's own topic shows only messages below the ordinary levels unless configured.
constexpr std::int8_t kSystemTopicLevel = 0;

std::string_view trim(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::optional<std::int8_t> parse_level(std::string_view text) {
  std::int8_t level = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, level);
  if (status != std::errc() || stop != end) return std::nullopt;
  return level;
}

void add_entry(TraceConfig& config, std::string_view raw) {
  const std::string_view entry = trim(raw);
  if (entry.empty()) return;
  const std::size_t equals = entry.find('=');
  const std::string_view name = trim(entry.substr(0, equals));
  const std::optional<std::int8_t> level =
      equals == std::string_view::npos ? std::nullopt : parse_level(trim(entry.substr(equals + 1)));
  if (name.empty() || !level) {
    config.malformed.emplace_back(entry);
  } else if (name == "*") {
    config.all_topics = level;
  } else {
    config.topics.push_back({std::string(name), *level});
  }
}

// "2026-11-22T21:10:08.123Z".
std::string format_utc_time(std::chrono::system_clock::time_point time) {
  using std::chrono::duration_cast;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto millis = duration_cast<std::chrono::milliseconds>(time - seconds).count();
  const std::time_t since_epoch = std::chrono::system_clock::to_time_t(seconds);
  std::tm utc{};
  gmtime_r(&since_epoch, &utc);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(millis));
  return text;
}

void append_escaped(std::string& line, std::string_view text) {
  for (const char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else {
      line.push_back(c);
    }
  }
}

std::FILE* open_output(const std::string& path) {
  if (path.empty()) return stderr;
  std::FILE* file = std::fopen(path.c_str(), "ae");
  if (file == nullptr) {
    const std::string reason = std::error_code(errno, std::generic_category()).message();
    std::fprintf(stderr,
                 "n7trace: cannot open N7_TRACE_FILE '%s' (%s); writing to standard error\n",
                 path.c_str(), reason.c_str());
    return stderr;
  }
  return file;
}

TraceConfig read_environment_config() {
  const char* const levels = std::getenv("N7_TRACE");     // NOLINT(concurrency-mt-unsafe)
  const char* const path = std::getenv("N7_TRACE_FILE");  // NOLINT(concurrency-mt-unsafe)
  TraceConfig config = parse_trace_config(levels == nullptr ? "" : levels);
  config.output_path = path == nullptr ? "" : path;
  return config;
}

// Walks NUL-separated arguments one at a time.
class ArgumentCursor {
 public:
  ArgumentCursor(std::string_view arguments, bool has_arguments)
      : rest_(arguments), done_(!has_arguments) {}

  bool next(std::string_view& argument) {
    if (done_) return false;
    const std::size_t end = rest_.find('\0');
    argument = rest_.substr(0, end);
    if (end == std::string_view::npos) {
      done_ = true;
    } else {
      rest_.remove_prefix(end + 1);
    }
    return true;
  }

 private:
  std::string_view rest_;
  bool done_;
};

}  // namespace

std::optional<std::int8_t> TraceConfig::level_for(std::string_view topic) const {
  for (auto it = topics.rbegin(); it != topics.rend(); ++it) {
    if (it->topic == topic) return it->level;
  }
  return all_topics;
}

TraceConfig parse_trace_config(std::string_view text) {
  TraceConfig config;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    add_entry(config, text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
  }
  return config;
}

std::string format_trace_line(const TraceRecord& record) {
  // Appended piece by piece: `"literal" + std::string` trips a false -Wrestrict in g++ 12 at -O3.
  std::string line = format_utc_time(record.time);
  line.append(" [").append(std::to_string(record.thread_id)).append("] ");
  line.append(record.topic).append(" L").append(std::to_string(record.level)).append(" ");
  line.append(record.function).append(" (").append(record.file).append(":");
  line.append(std::to_string(record.line)).append("): ");
  append_escaped(line, record.text);
  line += '\n';
  return line;
}

TraceManager::TraceManager(TraceConfig config)
    : config_(std::move(config)),
      output_(open_output(config_.output_path)),
      owns_output_(output_ != stderr) {
  for (const std::string& entry : config_.malformed) {
    std::fprintf(stderr, "n7trace: ignoring malformed N7_TRACE entry '%s'\n", entry.c_str());
  }
  system_topic_ = topic_handle(kSystemTopicName, 0, kSystemTopicLevel);
}

TraceManager::~TraceManager() {
  n7core::internal::MutexLock lock(output_mutex_);
  if (owns_output_) std::fclose(output_);
}

intTopicHdl* TraceManager::topic_handle(std::string_view name, int /*flags*/, std::int8_t level) {
  n7core::internal::MutexLock lock(topics_mutex_);
  auto it = topics_.find(name);
  if (it == topics_.end()) {
    auto topic =
        std::make_unique<Topic>(std::string(name), config_.level_for(name).value_or(level));
    const std::string_view key = topic->topic.name();
    it = topics_.emplace(key, std::move(topic)).first;
  }
  return &it->second->handle;
}

void TraceManager::add_sink(TraceSink* sink) {
  n7core::internal::MutexLock lock(output_mutex_);
  if (std::find(sinks_.begin(), sinks_.end(), sink) == sinks_.end()) sinks_.push_back(sink);
}

void TraceManager::remove_sink(TraceSink* sink) {
  n7core::internal::MutexLock lock(output_mutex_);
  std::erase(sinks_, sink);
}

void TraceManager::write(const TraceRecord& record) {
  const std::string line = format_trace_line(record);
  n7core::internal::MutexLock lock(output_mutex_);
  for (TraceSink* sink : sinks_) sink->write(record);
  std::fwrite(line.data(), 1, line.size(), output_);
  std::fflush(output_);
}

TraceManager& global_trace_manager() {
  static n7platform::NoDestructor<TraceManager> manager(read_environment_config());
  return *manager;
}

}  // namespace internal

ITraceMgr& get_trace_mgr() { return internal::global_trace_manager(); }

intTopicHdl* get_system_topic_handle() {
  return internal::global_trace_manager().system_topic_handle();
}

TraceTopic::TraceTopic(std::string name, std::int8_t level)
    : name_(std::move(name)), level_(level) {}

TraceMessage::TraceMessage(intTopicHdl* handle, std::int8_t level, const char* function,
                           const char* file, int line, const char* format)
    : std::ostream(nullptr),
      handle_(handle),
      level_(level),
      function_(function),
      file_(file),
      line_(line),
      format_(format) {
  rdbuf(&buffer_);
  // Streamed numbers ("error = 1722") must not pick up the grouping of a host's global locale.
  n7core::use_classic_locale(*this);
}

TraceMessage::~TraceMessage() {
  if (handle_ == nullptr) return;
  try {
    const std::string text =
        format_message(format_ == nullptr ? "" : format_, buffer_.view(), has_arguments_);
    const TraceRecord record{handle_->topic->name(),
                             level_,
                             msg_type_,
                             user_msg_type_,
                             function_ == nullptr ? "" : function_,
                             file_ == nullptr ? "" : file_,
                             line_,
                             text,
                             std::chrono::system_clock::now(),
                             static_cast<std::uint32_t>(::gettid())};
    internal::global_trace_manager().write(record);
  } catch (...) {
    // Tracing must never take its host down: a message that cannot be built is dropped.
  }
}

void TraceMessage::begin_argument() {
  if (has_arguments_) buffer_.sputc('\0');
  has_arguments_ = true;
}

std::string format_message(std::string_view format, std::string_view arguments,
                           bool has_arguments) {
  constexpr std::string_view kPlaceholder = "{}";
  internal::ArgumentCursor cursor(arguments, has_arguments);
  std::string text;
  text.reserve(format.size() + arguments.size());
  std::string_view argument;
  for (std::size_t pos = 0;;) {
    const std::size_t found = format.find(kPlaceholder, pos);
    text += format.substr(pos, found - pos);
    if (found == std::string_view::npos) break;
    text += cursor.next(argument) ? argument : kPlaceholder;
    pos = found + kPlaceholder.size();
  }
  while (cursor.next(argument)) {
    text += ' ';
    text += argument;
  }
  return text;
}

}  // namespace n7trace
