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

// Finds the executions of statements in a server's messages: "statement: ", "execute NAME: " and
// "duration: N ms" with or without one of these; "parse", "bind" and auto_explain's "plan:" with a
// duration; and errors. A message that has a duration alone goes to the statement of its session
// that has none yet. Not thread-safe.
class PostgresMessages {
 public:
  // Keeps about `most_bytes` at most of statements that wait for their duration.
  explicit PostgresMessages(std::size_t most_bytes) noexcept : most_bytes_(most_bytes) {}

  // To be called when a Found may be another or was cleared.
  void BeginFound();

  void Take(const PostgresMessage& message, Found& found);

  // Adds the statements that wait for their duration.
  void Flush(Found& found);

  // Why there are messages and no statements, if their language tells.
  std::string WhyEmpty() const;

 private:
  // A statement that may not be over.
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
  // A statement that auto_explain has told, which the server may tell once more when it is over.
  void TakePlanned(Waiting planned, std::string_view session, Found& found);

  void Wait(Waiting waiting, std::string_view session, Found& found);
  // Adds the statement for which the session waits, if there is one.
  void AddWaiting(std::string_view session, Found& found);
  void Add(Waiting waiting, bool executed, Found& found);
  // The statement for which the session waits, which it no longer does.
  std::optional<Waiting> TakeWaiting(std::string_view session);
  const Waiting* FindWaiting(std::string_view session) const;

  const std::size_t most_bytes_;
  std::size_t waiting_bytes_ = 0;
  // By session. Ordered, so that no session's name makes it slow.
  std::map<std::string, Waiting, std::less<>> waiting_;
  SharedText user_;
  SharedText database_;
  SharedText host_;
  bool foreign_ = false;
};

}  // namespace tarn::host
