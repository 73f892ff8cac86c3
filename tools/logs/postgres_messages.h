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
  // The duration that `text` reports, and whether it is that of an execution, as in Execution;
  // PostgresMessages sets both.
  std::optional<double> seconds = {};
  bool executed = true;
};

// Finds the executions of statements in a server's messages, for example:
//   "statement: select 1", "execute s1: select 1"      waits for its duration
//   "duration: 0.5 ms"                                 of the session's statement that waits
//   "duration: 0.5 ms  statement: select 1"            both; also with "parse", "bind" or "plan:"
//   "execute fetch from s1/c1: select 1"               more time of an execution
//   ERROR, FATAL or PANIC with a STATEMENT             a statement that failed
// Not thread-safe.
class PostgresMessages {
 public:
  // Adds the statements that are over with this message to `found`, and counts an entry. At most
  // about Found::max_statement bytes of statements wait for their duration.
  void Take(PostgresMessage&& message, Found& found);

  // Adds the statements that still wait for their duration.
  void Flush(Found& found);

 private:
  // The statements that are perhaps not over, by their sessions. Ordered, since strangers choose
  // the names of sessions and could make a hash slow.
  using Waiting = std::map<std::string, PostgresMessage, std::less<>>;

  void Wait(PostgresMessage&& statement, Found& found);
  // Removes the statement that waits and returns it.
  PostgresMessage Remove(Waiting::iterator waiting);

  Waiting waiting_;
  std::size_t waiting_bytes_ = 0;
};

}  // namespace tarn::host
