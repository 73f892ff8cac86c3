#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn::dbconfig {

// SSL modes of a connection, as the host's property map holds them.
inline constexpr std::string_view kSslDisabled = "0";
inline constexpr std::string_view kSslDefault = "1";
inline constexpr std::string_view kSslRequired = "2";

// The SSL mode that the content of an application configuration file sets: kSslDisabled or
// kSslRequired, or nothing if it sets none. The bytes are searched, never parsed, and only the
// first "sslmode" and the first "ssl" count: if no known value is close enough after the first
// "sslmode", the first "ssl" decides with true or false, and no later key is searched.
// impl_dao::CProductInterface::GetDBConnectProperties states the distances. Takes time linear in
// the length of `content`.
std::optional<std::string_view> FindSSLMode(std::string_view content) noexcept;

// The SSL mode that is set in the file named by the environment variable APP_CONF_FILE. Each call
// reads the file again. If no mode is found, logs a warning and returns kSslDefault.
//
// If the file can't be read to its end, the part that was read is searched. Throws std::bad_alloc
// and the exceptions of the logging library. Any thread may call.
// Requires: no thread changes the environment meanwhile.
std::string getSSLMode();

}  // namespace tarn::dbconfig
