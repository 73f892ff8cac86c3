// The host framework's view of a product: the abstract class whose dispatch table the host calls.
//
// The order of the nine operations is the binary contract between host and plug-in. Do not reorder,
// insert or append, and add no virtual destructor: the dispatch table holds these nine and nothing
// else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace refl {
class CValue;
}

namespace impl_dao {

// Everything that is particular to one management product.
//
// All texts are byte strings; no character set is implied or converted. The object carries no
// mutable state: calls from several threads are as safe as the platform services behind them, as
// long as no two share an output argument. No operation catches an exception: what a platform
// service, the standard library or Boost throws reaches the caller.
class CProductInterface {
 public:
  // Writes `message` to the product log at error level, under the code 666667. The pointer is
  // passed on as it is, not copied, and may be null if the logging library takes null.
  virtual void LogError(const char* message) = 0;

  // As LogError, at warning level and without a code.
  virtual void LogWarning(const char* message) = 0;

  // As LogError, at debug level and without a code.
  virtual void LogDebug(const char* message) = 0;

  // The product's error code for a native status: 0 for 0, 0xB000013 for any other. Never throws.
  virtual std::int64_t MapErrorCode(int status) = 0;

  // Fills in the login account for `dbName`, the password deciphered. Always true: that a password
  // could not be deciphered shows in the product log only. On an exception, outputs already written
  // stay written.
  virtual bool GetDBUserAndPassword(std::string& user, std::string& password,
                                    const std::string& dbName) = 0;

  // Replaces `address` with where to connect for `dbName`: "host:port" for the types "mysql" and
  // "tundra", the service name for any other. Always true; `address` is as it was after an
  // exception.
  virtual bool GetDBConnectAddress(std::string& address, const std::string& dbName) = 0;

  // Sets the entries "defaultDBName" and "SSLMODE" ("0" disabled, "1" default, "2" required), both
  // strings, and leaves every other entry alone. Always true.
  virtual bool GetDBConnectProperties(std::map<std::string, refl::CValue>& properties) = 0;

  // Replaces `dbType` with the engine type configured for `dbName`. Always true.
  virtual bool GetDBType(std::string& dbType, const std::string& dbName) = 0;

  // Rewrites `sql` into the canonical text of its shape. `sql` is as it was after an exception:
  // boost::bad_lexical_cast for a decimal literal beyond the range of double, std::runtime_error
  // when the regular-expression library gives up, std::bad_alloc.
  virtual void NormalizeSQL(std::string& sql) = 0;

 protected:
  // The host never destroys a product through this class.
  ~CProductInterface() = default;
};

}  // namespace impl_dao
