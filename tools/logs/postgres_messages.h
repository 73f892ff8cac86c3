#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "logs/source.h"

namespace tarn::host {

// A message of a PostgreSQL server, in whichever form of log. A text that the log does not give is
// empty.
struct PostgresMessage {
  std::optional<LogTime> time = {};
  // Differs between the sessions of the server.
  std::string session = {};
  std::string user = {};
  std::string database = {};
  std::string host = {};
  // "LOG", "ERROR" and the like.
  std::string severity = {};
  std::string sqlstate = {};
  std::string text = {};
  std::string detail = {};
  // The statement that an error ended.
  std::string statement = {};
  std::string query_id = {};
};

// Finds the executions of statements in a server's messages, for example:
//   "statement: select 1", "execute s1: select 1"      waits for its duration
//   "duration: 0.5 ms"                                 of the session's statement that waits
//   "duration: 0.5 ms  statement: select 1"            both; also with "parse", "bind" or "plan:"
//   ERROR, FATAL or PANIC with a STATEMENT             a statement that failed
// Not thread-safe.
class PostgresMessages {
 public:
  // At most about `most_bytes` of statements wait for their duration.
  explicit PostgresMessages(std::size_t most_bytes) noexcept : most_bytes_(most_bytes) {}

  // Adds the statements that are over with this message to `found`, and counts an entry.
  void Take(const PostgresMessage& message, Found& found);

  // Adds the statements that still wait for their duration.
  void Flush(Found& found);

  // The reason why messages held no statement, if it is their language; otherwise empty.
  std::string WhyEmpty() const;

 private:
  // A statement that is perhaps not over.
  struct Waiting {
    // Its text is `statement`; `detail` has the values of its parameters alone.
    PostgresMessage message;
    // Known if auto_explain has reported the statement.
    std::optional<double> seconds;
  };

  static Waiting Describe(const PostgresMessage& message, std::string_view statement,
                          std::optional<double> seconds);

  void TakeLog(const PostgresMessage& message, Found& found);
  void TakeError(const PostgresMessage& message, Found& found);
  // Takes a statement that auto_explain reports. The server may report it once more after its end.
  void TakePlanned(Waiting planned, std::string_view session, Found& found);

  void Wait(Waiting waiting, std::string_view session, Found& found);
  // Adds the session's statement that waits, if there is one.
  void AddWaiting(std::string_view session, Found& found);
  void Add(Waiting waiting, bool executed, Found& found);
  // Removes the session's statement that waits, if there is one, and returns it.
  std::optional<Waiting> TakeWaiting(std::string_view session);
  const Waiting* FindWaiting(std::string_view session) const;

  const std::size_t most_bytes_;
  std::size_t waiting_bytes_ = 0;
  // By session. Ordered, since strangers choose the names of sessions and could make a hash slow.
  std::map<std::string, Waiting, std::less<>> waiting_;
  // Whether a message was in another language.
  bool foreign_ = false;
};

}  // namespace tarn::host
