#include "logs/postgres_messages.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "sql/text.h"

namespace tarn::host {
namespace {

// No server has more sessions at one time.
constexpr std::size_t kMostWaiting = 10'000;

bool TakePrefix(std::string_view& text, std::string_view prefix) noexcept {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Removes a duration from `text` and returns it in seconds: "duration: 1.5 ms" -> 0.0015. Returns
// nothing if there is none, or, counting it, if no server can mean it.
std::optional<double> TakeDuration(std::string_view& text, Found& found) {
  constexpr double kMillisecondsPerSecond = 1000;
  std::string_view rest = text;
  if (!TakePrefix(rest, "duration: ")) return std::nullopt;
  double milliseconds = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), milliseconds);
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  if (!TakePrefix(rest, " ms")) return std::nullopt;
  text = rest;
  return found.PossibleSeconds(error == std::errc() ? milliseconds / kMillisecondsPerSecond : -1);
}

// The statement in a message, and whether the message reports its execution and not its parsing or
// binding: "bind s1: select 1" -> {"select 1", false}.
struct Named {
  std::string_view text;
  bool executed;
};

std::optional<Named> NamedStatement(std::string_view text) {
  if (TakePrefix(text, "statement: ")) return Named{Trimmed(text), true};
  const bool executed = text.starts_with("execute ");
  if (!executed && !text.starts_with("parse ") && !text.starts_with("bind ")) return std::nullopt;
  const std::size_t colon = text.find(": ");
  if (colon == std::string_view::npos) return std::nullopt;
  return Named{Trimmed(text.substr(colon + 2)), executed};
}

// The statement in auto_explain's text: "Query Text: select 1\nResult  (cost=..." -> "select 1".
std::string_view StatementBeforePlan(std::string_view text) {
  if (!TakePrefix(text, "Query Text: ")) return {};
  std::size_t line_begin = 0;
  while (line_begin < text.size()) {
    const std::size_t line_end = std::min(text.find('\n', line_begin), text.size());
    const std::string_view line = text.substr(line_begin, line_end - line_begin);
    if (line_begin > 0 && (line.starts_with("Query Parameters: ") ||
                           line.find("  (cost=") != std::string_view::npos)) {
      break;
    }
    line_begin = line_end + 1;
  }
  return Trimmed(text.substr(0, line_begin));
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

}  // namespace

void PostgresMessages::Take(const PostgresMessage& message, Found& found) {
  ++found.entries;
  found.AddTime(message.time);
  if (message.severity == "LOG") {
    TakeLog(message, found);
  } else if (message.severity == "ERROR" || message.severity == "FATAL" ||
             message.severity == "PANIC") {
    TakeError(message, found);
  }
}

PostgresMessages::Waiting PostgresMessages::Describe(const PostgresMessage& message,
                                                     std::string_view statement,
                                                     std::optional<double> seconds) {
  std::string_view parameters = message.detail;
  if (!TakePrefix(parameters, "parameters: ") && !TakePrefix(parameters, "Parameters: ")) {
    parameters = {};
  }
  return {{.time = message.time,
           .user = message.user,
           .database = message.database,
           .host = message.host,
           .detail = std::string(parameters),
           .statement = std::string(statement),
           .query_id = message.query_id == "0" ? "" : message.query_id},
          seconds};
}

void PostgresMessages::TakeLog(const PostgresMessage& message, Found& found) {
  std::string_view text = message.text;
  const std::size_t whole_size = text.size();
  const std::optional<double> seconds = TakeDuration(text, found);
  const bool timed = text.size() < whole_size;
  if (timed && text.empty()) {
    if (auto waiting = TakeWaiting(message.session)) {
      waiting->seconds = seconds;
      Add(*std::move(waiting), true, found);
    }
    return;
  }
  if (timed && !TakePrefix(text, "  ")) return;
  if (timed && TakePrefix(text, "plan:\n")) {
    const std::string_view planned = StatementBeforePlan(text);
    if (!planned.empty()) {
      TakePlanned(Describe(message, planned, seconds), message.session, found);
    }
    return;
  }
  const std::optional<Named> named = NamedStatement(text);
  if (!named) {
    foreign_ = foreign_ || IsForeign(text);
    return;
  }
  if (!timed && !named->executed) return;
  Waiting statement = Describe(message, named->text, seconds);
  if (!timed) {
    AddWaiting(message.session, found);
    Wait(std::move(statement), message.session, found);
    return;
  }
  if (named->executed) {
    // If the statement that waits is the same, auto_explain has already reported this execution.
    const Waiting* const waiting = FindWaiting(message.session);
    if (waiting != nullptr && waiting->message.statement == named->text) {
      TakeWaiting(message.session);
    }
    AddWaiting(message.session, found);
  }
  Add(std::move(statement), named->executed, found);
}

void PostgresMessages::TakePlanned(Waiting planned, std::string_view session, Found& found) {
  const Waiting* const waiting = FindWaiting(session);
  if (waiting != nullptr && !waiting->seconds) {
    if (waiting->message.statement != planned.message.statement) {
      // A statement that waits calls a function, and this statement is within it.
      Add(std::move(planned), true, found);
      return;
    }
    TakeWaiting(session);
  }
  AddWaiting(session, found);
  Wait(std::move(planned), session, found);
}

void PostgresMessages::TakeError(const PostgresMessage& message, Found& found) {
  const std::string_view statement = Trimmed(message.statement);
  if (statement.empty()) return;
  const Waiting* const waiting = FindWaiting(message.session);
  const bool announced = waiting != nullptr && waiting->message.statement == statement;
  Waiting failed = announced ? *TakeWaiting(message.session) : Describe(message, statement, {});
  failed.message.sqlstate = message.sqlstate.empty() ? message.severity : message.sqlstate;
  Add(std::move(failed), announced, found);
}

const PostgresMessages::Waiting* PostgresMessages::FindWaiting(std::string_view session) const {
  const auto waiting = waiting_.find(session);
  return waiting == waiting_.end() ? nullptr : &waiting->second;
}

std::optional<PostgresMessages::Waiting> PostgresMessages::TakeWaiting(std::string_view session) {
  const auto waiting = waiting_.find(session);
  if (waiting == waiting_.end()) return std::nullopt;
  Waiting statement = std::move(waiting->second);
  waiting_bytes_ -= statement.message.statement.size() + statement.message.detail.size();
  waiting_.erase(waiting);
  return statement;
}

void PostgresMessages::Wait(Waiting waiting, std::string_view session, Found& found) {
  waiting_bytes_ += waiting.message.statement.size() + waiting.message.detail.size();
  waiting_.insert_or_assign(std::string(session), std::move(waiting));
  if (waiting_.size() > kMostWaiting || waiting_bytes_ > most_bytes_) Flush(found);
}

void PostgresMessages::AddWaiting(std::string_view session, Found& found) {
  if (auto waiting = TakeWaiting(session)) Add(*std::move(waiting), true, found);
}

void PostgresMessages::Add(Waiting waiting, bool executed, Found& found) {
  PostgresMessage& message = waiting.message;
  if (message.statement.empty()) return;
  const auto keep = [&found](std::string& text) -> std::string_view {
    if (text.empty()) return {};
    return found.owned.emplace_back(std::move(text));
  };
  found.statements.push_back({keep(message.statement),
                              {.seconds = waiting.seconds,
                               .time = message.time,
                               .user = found.Share(&Execution::user, message.user),
                               .database = found.Share(&Execution::database, message.database),
                               .host = found.Share(&Execution::host, message.host),
                               .parameters = keep(message.detail),
                               .query_id = keep(message.query_id),
                               .error = keep(message.sqlstate),
                               .executed = executed}});
}

void PostgresMessages::Flush(Found& found) {
  for (auto& [session, waiting] : waiting_) Add(std::move(waiting), true, found);
  waiting_.clear();
  waiting_bytes_ = 0;
}

std::string PostgresMessages::WhyEmpty() const {
  return foreign_ ? "its messages are in another language: set lc_messages = 'C'" : "";
}

}  // namespace tarn::host
