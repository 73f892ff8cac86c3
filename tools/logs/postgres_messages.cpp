#include "logs/postgres_messages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logs/scan.h"
#include "sql/text.h"

namespace tarn::host {
namespace {

// No server has more sessions at one time.
constexpr std::size_t kMostWaiting = 10'000;

// Removes a duration from `text` and returns it in seconds: "duration: 1.5 ms" -> 0.0015. Returns
// nothing if there is none, or, counting it, if no server can mean it.
std::optional<double> TakeDuration(std::string_view& text, Found& found) {
  constexpr double kMillisecondsPerSecond = 1000;
  std::string_view rest = text;
  if (!TakePrefix(rest, "duration: ")) return std::nullopt;
  const std::optional<double> milliseconds = TakeNumber<double>(rest);
  if (!TakePrefix(rest, " ms")) return std::nullopt;
  text = rest;
  return found.PossibleSeconds(milliseconds.value_or(-1) / kMillisecondsPerSecond);
}

// The statement in auto_explain's text: "Query Text: select 1\nResult  (cost=..." -> "select 1".
std::string_view StatementBeforePlan(std::string_view text) {
  if (!TakePrefix(text, "Query Text: ")) return {};
  std::size_t end = text.find('\n');
  while (end < text.size()) {
    const std::size_t next = text.find('\n', end + 1);
    const std::string_view line = text.substr(end + 1, next - end - 1);
    if (line.starts_with("Query Parameters: ") || line.find("  (cost=") < line.size()) break;
    end = next;
  }
  return text.substr(0, end);
}

// Whether a message reports a statement or a duration in another language than English, as the
// setting lc_messages may ask: "Dauer: 1.5 ms".
bool IsForeign(std::string_view text) {
  static constexpr std::array<std::string_view, 14> kWords{
      "Anweisung: ", "Dauer: ",     "Ausführen ", "instruction : ",     "durée : ",
      "exécute ",    "sentencia: ", "duración: ", "istruzione: ",       "durata: ",
      "comando: ",   "duração: ",   "оператор: ", "продолжительность: "};
  return std::any_of(kWords.begin(), kWords.end(),
                     [text](std::string_view word) { return text.starts_with(word); });
}

// The kinds of messages.
enum class Report {
  kNothing,
  kDuration,  // of the statement that waits
  kBegun,     // a statement without a duration
  kPrepared,  // the parsing or binding of a statement, with its duration
  kExecuted,  // a statement with its duration
  kPlanned,   // the same, by auto_explain; the server may report it once more after its end
  kFailed,    // a statement that failed
};

// Sets the statement and its seconds that `message` reports, and leaves only the values of its
// parameters in `detail`.
Report Read(PostgresMessage& message, Found& found) {
  std::string_view parameters = message.detail;
  const bool any = TakePrefix(parameters, "parameters: ") || TakePrefix(parameters, "Parameters: ");
  message.detail = any ? std::string(parameters) : "";
  if (message.severity == "ERROR" || message.severity == "FATAL" || message.severity == "PANIC") {
    if (message.sqlstate.empty()) message.sqlstate = message.severity;
    message.statement = Trimmed(message.statement);
    return message.statement.empty() ? Report::kNothing : Report::kFailed;
  }
  message.sqlstate.clear();
  if (message.severity != "LOG") return Report::kNothing;
  std::string_view text = message.text;
  message.seconds = TakeDuration(text, found);
  const bool timed = text.size() < message.text.size();
  if (timed && text.empty()) return Report::kDuration;
  if (timed && !TakePrefix(text, "  ")) return Report::kNothing;

  Report report = timed ? Report::kExecuted : Report::kBegun;
  if (timed && TakePrefix(text, "plan:\n")) {
    report = Report::kPlanned;
    text = StatementBeforePlan(text);
    if (text.empty()) return Report::kNothing;
  } else if (!TakePrefix(text, "statement: ")) {
    // "execute s1: select $1"
    const std::size_t colon = text.find(": ");
    if (timed && (text.starts_with("parse ") || text.starts_with("bind "))) {
      report = Report::kPrepared;
    } else if (!text.starts_with("execute ")) {
      if (IsForeign(text)) {
        found.summary.why_empty = "its messages are in another language: set lc_messages = 'C'";
      }
      return Report::kNothing;
    }
    if (colon == std::string_view::npos) return Report::kNothing;
    text.remove_prefix(colon + 2);
  }
  message.statement = Trimmed(text);
  message.text.clear();
  return report;
}

void Add(PostgresMessage&& statement, bool executed, Found& found) {
  if (statement.statement.empty()) return;
  if (statement.query_id == "0") statement.query_id.clear();
  const std::string_view text = found.Own(std::move(statement.statement));
  found.Add(text, {.seconds = statement.seconds,
                   .time = statement.time,
                   .user = found.Share(&Execution::user, statement.user),
                   .database = found.Share(&Execution::database, statement.database),
                   .host = found.Share(&Execution::host, statement.host),
                   .parameters = found.Own(std::move(statement.detail)),
                   .query_id = found.Own(std::move(statement.query_id)),
                   .error = found.Own(std::move(statement.sqlstate)),
                   .executed = executed});
}

}  // namespace

void PostgresMessages::Take(PostgresMessage&& message, Found& found) {
  found.CountEntry(message.time);
  const Report report = Read(message, found);
  const auto waiting = waiting_.find(message.session);
  const bool any = waiting != waiting_.end();
  const bool same = any && waiting->second.statement == message.statement;
  switch (report) {
    case Report::kNothing:
      return;
    case Report::kDuration:
      if (!any) return;
      waiting->second.seconds = message.seconds;
      return Add(Remove(waiting), true, found);
    case Report::kPrepared:
      return Add(std::move(message), false, found);
    case Report::kFailed:
      if (!same) return Add(std::move(message), false, found);
      waiting->second.sqlstate = message.sqlstate;
      return Add(Remove(waiting), true, found);
    case Report::kPlanned:
      // A statement that waits may call a function, and the planned one is within it.
      if (any && !same && !waiting->second.seconds) return Add(std::move(message), true, found);
      break;
    case Report::kBegun:
    case Report::kExecuted:
      break;
  }
  if (any) {
    PostgresMessage before = Remove(waiting);
    // Two successive reports of one statement are on one execution if only the later can be its
    // end.
    const bool one_execution =
        same && (report == Report::kExecuted || (report == Report::kPlanned && !before.seconds));
    if (!one_execution) Add(std::move(before), true, found);
  }
  if (report == Report::kExecuted) return Add(std::move(message), true, found);
  Wait(std::move(message), found);
}

void PostgresMessages::Wait(PostgresMessage&& statement, Found& found) {
  waiting_bytes_ += statement.statement.size() + statement.detail.size();
  std::string session = std::move(statement.session);
  waiting_.insert_or_assign(std::move(session), std::move(statement));
  if (waiting_.size() > kMostWaiting || waiting_bytes_ > found.max_statement) Flush(found);
}

PostgresMessage PostgresMessages::Remove(Waiting::iterator waiting) {
  PostgresMessage statement = std::move(waiting->second);
  waiting_.erase(waiting);
  waiting_bytes_ -= statement.statement.size() + statement.detail.size();
  return statement;
}

void PostgresMessages::Flush(Found& found) {
  for (auto& [session, statement] : waiting_) Add(std::move(statement), true, found);
  waiting_.clear();
  waiting_bytes_ = 0;
}

}  // namespace tarn::host
