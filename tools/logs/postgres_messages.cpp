#include "logs/postgres_messages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>
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

// Removes a duration, and the blanks between it and a statement, from `text` and returns it in
// seconds: "duration: 1.5 ms" -> 0.0015. Returns nothing if there is none, or, counting it, if no
// server can mean it.
std::optional<double> TakeDuration(std::string_view& text, Found& found) {
  constexpr double kMillisecondsPerSecond = 1000;
  std::string_view rest = text;
  if (!TakePrefix(rest, "duration: ")) return std::nullopt;
  const std::optional<double> milliseconds = TakeNumber<double>(rest);
  if (!TakePrefix(rest, " ms")) return std::nullopt;
  TakePrefix(rest, "  ");
  text = rest;
  return found.PossibleSeconds(milliseconds.value_or(-1) / kMillisecondsPerSecond);
}

// The statement in auto_explain's text: "Query Text: select 1\nResult  (cost=..." -> "select 1". In
// JSON and in YAML it is a quoted string in one line. Empty if there is none, as in XML.
std::string StatementBeforePlan(std::string_view text) {
  const bool plain = TakePrefix(text, "Query Text: ");
  if ((plain && text.starts_with('"')) || TakePrefix(text, "{\n  \"Query Text\": ")) {
    text = text.substr(0, text.find('\n'));
    if (text.ends_with(',')) text.remove_suffix(1);
    const auto statement = nlohmann::json::parse(text, nullptr, false);
    return statement.is_string() ? statement.get<std::string>() : "";
  }
  if (!plain) return {};
  const std::size_t plan = text.rfind('\n', text.find("  (cost=", text.find('\n')));
  return std::string(text.substr(0, std::min(plan, text.find("\nQuery Parameters: "))));
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
  const auto lose = [&found](const char* content) {
    ++found.summary.lost[content];
    return Report::kNothing;
  };
  std::string_view parameters = message.detail;
  const bool any = TakePrefix(parameters, "parameters: ") || TakePrefix(parameters, "Parameters: ");
  message.detail = any ? std::string(parameters) : "";
  if (message.severity == "ERROR" || message.severity == "FATAL" || message.severity == "PANIC") {
    if (message.sqlstate.empty()) message.sqlstate = message.severity;
    message.statement = Trimmed(message.statement);
    message.executed = false;
    if (!message.statement.empty()) return Report::kFailed;
    // Only an error of a client has a statement.
    return message.severity != "ERROR" || message.text.starts_with("canceling autovacuum task")
               ? Report::kNothing
               : lose("an error without its statement: set log_min_error_statement = 'error'");
  }
  message.sqlstate.clear();
  if (message.severity != "LOG") return Report::kNothing;
  std::string_view text = message.text;
  message.seconds = TakeDuration(text, found);
  const bool timed = text.size() < message.text.size();
  if (timed && text.empty()) return Report::kDuration;

  Report report = timed ? Report::kExecuted : Report::kBegun;
  std::string planned;
  if (timed && TakePrefix(text, "plan:\n")) {
    report = Report::kPlanned;
    text = planned = StatementBeforePlan(text);
    if (text.empty()) return lose("a plan in XML: set auto_explain.log_format = 'text'");
  } else if (!TakePrefix(text, "statement: ")) {
    // "execute s1: select $1"
    const std::size_t colon = text.find(": ");
    if (timed && (text.starts_with("parse ") || text.starts_with("bind "))) {
      report = Report::kPrepared;
    } else if (!text.starts_with("execute ")) {
      return IsForeign(text) ? lose("text in another language: set lc_messages = 'C'")
                             : Report::kNothing;
    }
    message.executed = report != Report::kPrepared && !text.starts_with("execute fetch from ");
    if (colon == std::string_view::npos) return Report::kNothing;
    text.remove_prefix(colon + 2);
  }
  message.statement = Trimmed(text);
  message.text.clear();
  return report;
}

void Add(PostgresMessage&& statement, Found& found) {
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
                   .executed = statement.executed});
}

}  // namespace

void PostgresMessages::Take(PostgresMessage&& message, Found& found) {
  found.CountEntry(message.time);
  const Report report = Read(message, found);
  const auto waiting = waiting_.find(message.session);
  PostgresMessage* const before = waiting == waiting_.end() ? nullptr : &waiting->second;
  const bool same = before != nullptr && before->statement == message.statement;
  switch (report) {
    case Report::kNothing:
      return;
    case Report::kDuration:
      // Statements of unknown sessions do not wait, since the duration may be that of any.
      if (message.session.empty()) {
        ++found.summary.lost["a duration of an unknown session: give --prefix"];
      }
      if (before == nullptr) return;
      before->seconds = message.seconds;
      return Add(Remove(waiting), found);
    case Report::kPrepared:
      return Add(std::move(message), found);
    case Report::kFailed:
      if (!same) return Add(std::move(message), found);
      before->sqlstate = message.sqlstate;
      return Add(Remove(waiting), found);
    case Report::kPlanned:
      // A statement that waits may call a function, and the planned one is within it.
      if (before != nullptr && !same && !before->seconds) return Add(std::move(message), found);
      break;
    case Report::kBegun:
    case Report::kExecuted:
      break;
  }
  if (before != nullptr) {
    // Two successive reports of one statement are on one execution if only the later can be its
    // end.
    const bool one_execution =
        same && (report == Report::kExecuted || (report == Report::kPlanned && !before->seconds));
    PostgresMessage other = Remove(waiting);
    if (!one_execution) Add(std::move(other), found);
  }
  if (report == Report::kExecuted) return Add(std::move(message), found);
  Wait(std::move(message), found);
}

void PostgresMessages::Wait(PostgresMessage&& statement, Found& found) {
  if (statement.session.empty()) return Add(std::move(statement), found);
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
  for (auto& [session, statement] : std::exchange(waiting_, {})) Add(std::move(statement), found);
  waiting_bytes_ = 0;
}

}  // namespace tarn::host
