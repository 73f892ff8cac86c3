// Logs that are recognised, so that a person learns why there is nothing to count, and not read.
#pragma once

#include <string_view>

namespace tarn::host {

// Whether `line` begins an entry of MariaDB's server_audit.log.
bool BeginsMariaDbAuditEntry(std::string_view line);

// Whether `line` begins MySQL's audit log, in XML or in JSON.
bool BeginsMySqlAuditEntry(std::string_view line) noexcept;

// Whether `line` begins a binary log.
bool BeginsBinaryLog(std::string_view line) noexcept;

// Whether `line` has the time and the stream that a container's runtime puts before a log's line,
// or is the object in which it wraps one.
bool BeginsContainerLine(std::string_view line);

}  // namespace tarn::host
