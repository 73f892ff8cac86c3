#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn::dbconfig {

// SSL modes of a connection, as the host's property map holds them.
inline constexpr std::string_view kSslDisabled = "0";
inline constexpr std::string_view kSslDefault = "1";
inline constexpr std::string_view kSslRequired = "2";

// The SSL mode that the content of an application configuration file sets: kSslDisabled,
// kSslRequired or, where it sets none, nothing. The bytes are searched, never parsed, and only the
// first "sslmode" and the first "ssl" count: if no known value is close enough after the first
// "sslmode", the first "ssl" decides with true or false, and no later key is looked at. The
// distances are those of impl_dao::CProductInterface::GetDBConnectProperties. Takes time linear in
// the length of `content`.
std::optional<std::string_view> FindSSLMode(std::string_view content) noexcept;

// The SSL mode set in the file that the environment variable APP_CONF_FILE names, read afresh on
// every call; kSslDefault after a warning in the product log if there is none.
//
// A file that can't be read to its end counts as far as it was read. Throws std::bad_alloc and what
// the logging library throws. Any thread may call.
// Requires: no thread changes the environment meanwhile.
std::string getSSLMode();

}  // namespace tarn::dbconfig
