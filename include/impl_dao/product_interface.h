// The interface of a product to the host framework: the class whose dispatch table the host calls.
//
// The order of the nine operations is the binary contract between host and plug-in. Do not reorder,
// insert or append, and add no virtual destructor: the dispatch table holds these nine and nothing
// else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

// The host and the plug-in exchange std::string and std::map objects, so both must be compiled for
// one layout of these classes. If the layouts differed, memory would be corrupted without a
// message.
#if !defined(__GLIBCXX__)
#error "impl_dao/product_interface.h: the plug-in needs a host with the C++ library libstdc++"
#elif !_GLIBCXX_USE_CXX11_ABI
#error "impl_dao/product_interface.h: the plug-in needs a host without _GLIBCXX_USE_CXX11_ABI=0"
#endif

namespace refl {
class CValue;
}

namespace impl_dao {

// The operations in which one management product differs from another.
//
// Texts are byte strings; no character set is implied or converted. The object has no mutable
// state: calls from several threads are as safe as the platform services that they use.
// Requires: no two concurrent calls share an output argument, and no thread uses an output argument
// elsewhere during the call.
//
// No operation catches exceptions: an exception from a platform service, the standard library or
// Boost reaches the caller. The comment of each operation states the content of its outputs after
// an exception. A missing setting is no exception: the platform returns an empty text or 0, which
// is used like any other value.
//
// Load the library when the process starts. It compiles its 23 patterns while it is loaded, and no
// caller can catch an exception from that: if memory runs out at that moment, the process ends.
class CProductInterface {
 public:
  // Writes `message` (NUL-terminated) to the product log at error level, with the code 666667. The
  // pointer is passed on as it is and the text is not copied. The pointer may be null if the
  // logging library accepts null.
  virtual void LogError(const char* message) = 0;

  // As LogError, at warning level and without a code.
  virtual void LogWarning(const char* message) = 0;

  // As LogError, at debug level and without a code.
  virtual void LogDebug(const char* message) = 0;

  // The product's error code for a native status: 0 for 0, 0xB000013 for any other. Never throws.
  virtual std::int64_t MapErrorCode(int status) = 0;

  // Sets `user` and `password` to the login account for `dbName`, with the password deciphered. The
  // login is the configured user, except for the type "tundra": there the login is the database's
  // name, whatever user is configured. Always returns true. If the password could not be
  // deciphered, only the product log shows it, and `password` holds the text that the cipher
  // library left.
  //
  // Logs the configured user as a warning, up to its first NUL. If the first of the two algorithms
  // fails, tries the second, and logs both results as errors with the cipher library's codes, even
  // if the second succeeds. Never logs the password. Overwrites its own copy of the password; the
  // caller overwrites `password`.
  //
  // After an exception, one of three things holds: both outputs are unchanged; `user` is the
  // configured user and `password` is unchanged; or `user` is the configured user and `password` is
  // the new one.
  // Requires: `user`, `password` and `dbName` are three different strings.
  virtual bool GetDBUserAndPassword(std::string& user, std::string& password,
                                    const std::string& dbName) = 0;

  // Sets `address` to the address at which `dbName` is reached: "HOST:PORT" for the types "mysql"
  // and "tundra", without brackets around an IPv6 address, and the service name for any other type.
  // The port has the digit groups of the global C++ locale: for example 3306 in the classic one,
  // 3,306 in en_US.UTF-8. Always returns true and logs nothing. After an exception `address` is
  // unchanged. `address` and `dbName` may be one string.
  virtual bool GetDBConnectAddress(std::string& address, const std::string& dbName) = 0;

  // Sets two entries of `properties`, both strings, and leaves all others alone. If an entry
  // exists, its value is replaced. Always returns true.
  //
  //   "defaultDBName"  the database that this process uses by default, for example
  //                    "nemgr_transDB_3". Logged as a warning.
  //   "SSLMODE"        "0" disabled, "1" default, "2" required, as set in the file that the
  //                    environment variable APP_CONF_FILE names. Each call reads the file again.
  //
  // The file is searched as bytes, never parsed. The searches are made in this order, and the first
  // that succeeds decides:
  //
  //   first "sslmode", then "disabled" with at most 5 bytes between the quotes    "0"
  //                    or "required" at the same distance                         "2"
  //   first "ssl",     then true with at most 3 bytes between quote and word      "2"
  //                    or false at the same distance                              "0"
  //   none of these, or no such file                                              "1", a warning
  //
  // All words are found in lower case only. The keys, "disabled" and "required" need their double
  // quotes; true and false are found with or without quotes, whatever bytes follow. For example:
  //
  //   "sslmode":      "required"           "1": seven bytes between the quotes are too many
  //   "ssl" :  true                        "1": four bytes between quote and word are too many
  //   "sslmode": "require"                 "1": not a known value, and neither is "verify-full"
  //   "ssl": {"enabled": true}             "1": true is too far away; nesting means nothing
  //   "ssl": false … "ssl": true           "0": only the first key counts
  //   // "sslmode": "disabled"             "0": a comment counts like any other text
  //
  // If the file can't be opened, for example because no file descriptor or no memory is left, the
  // mode is "1" and a warning is logged: the mode "2" in that file has no effect, and only the log
  // shows it. If the file can't be read to its end, the part that was read is searched. A folder
  // counts as an empty file. The path is opened without any check: a FIFO without a writer blocks
  // the calling thread, and a device such as /dev/zero is read until memory runs out.
  //
  // After an exception, "defaultDBName" is unchanged, present without a value, or set. "SSLMODE" is
  // unchanged or, if it was missing, possibly present without a value.
  // Requires: no thread changes the environment (setenv, putenv) during the call.
  virtual bool GetDBConnectProperties(std::map<std::string, refl::CValue>& properties) = 0;

  // Sets `dbType` to the engine type configured for `dbName`, and logs it as an error, up to its
  // first NUL. Always returns true. After an exception from the log, `dbType` holds the new type;
  // after any other exception it is unchanged. `dbType` and `dbName` may be one string.
  virtual bool GetDBType(std::string& dbType, const std::string& dbName) = 0;

  // Replaces `sql` by its canonical text. This text is a key, not SQL to execute.
  // Statements that differ in their values may have one key, so a host that caches results by it
  // serves wrong results. For example, the two values in each line have one key:
  //
  //   0.1              0.1000000000000000001   decimals are doubles
  //   '172.10.10.10'   '172.1.10.1'            rules apply within quotes, too: decimals
  //   '3.10'           '3.1'                   likewise
  //   '0x1F'           '31'                    hexadecimals
  //   'a  b'           'a b'                   white space
  //   't1'             't2'                    aliases
  //   VALUES (1), (2)  VALUES (1), (3)         only the first row is kept
  //
  // The C++ locale that is global when the library is loaded decides which bytes are letters,
  // digits or spaces, and the lower case of each letter. Literals are always read and printed as in
  // the classic locale. Alias numbers have the digit groups of the C++ locale that is global at the
  // time of the call, none in the classic one.
  //
  // The capacity of `sql` stays or grows, except under the patterns (below). A host that keeps many
  // short texts of long statements copies or shrinks them.
  //
  // After an exception `sql` is unchanged. Throws boost::bad_lexical_cast for a decimal literal
  // beyond the range of double, std::bad_alloc, and std::runtime_error if the regular-expression
  // library gives up on a text. That library is used only if the locale of loading classifies bytes
  // otherwise than the classic one; it then gives up, for example, on 92 bytes (one double quote
  // and 91 blanks). Otherwise no text is too hard, and the time is linear in its length.
  virtual void NormalizeSQL(std::string& sql) = 0;

 protected:
  // The host never destroys a product through this class.
  ~CProductInterface() = default;
};

}  // namespace impl_dao
