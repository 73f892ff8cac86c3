#pragma once

#include <functional>
#include <string_view>

#include "logs/source.h"

namespace tarn::host {

// Calls `take` with each statement of a packet that a client sent to MySQL or MariaDB, without the
// comments before it and the semicolon after it: "select 1; /* a */ select 2;" -> "select 1",
// "select 2". A body such as that of CREATE PROCEDURE belongs to its statement. If there are more
// than 1,000 statements, the others are left out, and `found` counts a damaged entry.
void SplitPacket(std::string_view packet, Found& found,
                 const std::function<void(std::string_view)>& take);

}  // namespace tarn::host
