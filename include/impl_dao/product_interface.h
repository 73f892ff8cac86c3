// The host framework's view of a product: the abstract class whose dispatch table the host calls.
//
// The order of the nine operations is the binary contract between host and plug-in. Do not reorder,
// insert or append, and add no virtual destructor: the dispatch table holds these nine and nothing
// else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

// Host and plug-in pass each other strings and maps, so both need the same layout of them. With
// another one the host's memory would be corrupted in silence.
#if !defined(__GLIBCXX__)
#error "impl_dao/product_interface.h: the plug-in needs a host with the C++ library libstdc++"
#elif !_GLIBCXX_USE_CXX11_ABI
#error "impl_dao/product_interface.h: the plug-in needs a host without _GLIBCXX_USE_CXX11_ABI=0"
#endif

namespace refl {
class CValue;
}

namespace impl_dao {

// Everything that is particular to one management product.
//
// Texts are byte strings; no character set is implied or converted. The object carries no mutable
// state: calls from several threads are as safe as the platform services that they use.
// Requires: no two calls at once share an output argument, and none is used elsewhere meanwhile.
//
// No operation catches an exception: one from a platform service, the standard library or Boost
// reaches the caller, and each operation says what its outputs hold then. A setting that is missing
// raises none: it comes back as the platform's empty text or 0.
//
// Load the library when the process starts. It compiles its 23 patterns while it is loaded, and an
// exception in there has no caller to go to: a process that runs out of memory at that moment ends.
class CProductInterface {
 public:
  // Writes `message` (NUL-terminated) to the product log at error level, under the code 666667. The
  // pointer is passed on as it is, not copied, and may be null if the logging library takes null.
  virtual void LogError(const char* message) = 0;

  // As LogError, at warning level and without a code.
  virtual void LogWarning(const char* message) = 0;

  // As LogError, at debug level and without a code.
  virtual void LogDebug(const char* message) = 0;

  // The product's error code for a native status: 0 for 0, 0xB000013 for any other. Never throws.
  virtual std::int64_t MapErrorCode(int status) = 0;

  // Fills in the login account for `dbName`, the password deciphered. The login is the configured
  // user, except for the type "tundra": there it is the database's name, whatever user is
  // configured. Always true: that a password could not be deciphered shows in the product log only,
  // and `password` then holds the text that the cipher library left.
  //
  // Logs the configured user as a warning, up to its first NUL. Where the first of two algorithms
  // fails, logs the results of both, even a success of the second, as errors under the cipher
  // library's codes. Never logs the password, and overwrites its own copy; `password` is the
  // caller's to overwrite.
  //
  // After an exception both outputs are as they were, or `user` is the configured user, or that and
  // `password` is the new one.
  // Requires: `user`, `password` and `dbName` are three different strings.
  virtual bool GetDBUserAndPassword(std::string& user, std::string& password,
                                    const std::string& dbName) = 0;

  // Replaces `address` with where to connect for `dbName`: "HOST:PORT" for the types "mysql" and
  // "tundra", without brackets around an IPv6 address, the service name for any other. The port has
  // the digit groups of the global C++ locale, none in the classic one. Always true; logs nothing;
  // `address` is as it was after an exception. `address` and `dbName` may be one string.
  virtual bool GetDBConnectAddress(std::string& address, const std::string& dbName) = 0;

  // Sets two entries, both strings, and leaves every other alone; the value of an entry that
  // exists is replaced. Always true.
  //
  //   "defaultDBName"  the database that this process uses by default, such as "nemgr_transDB_3".
  //                    Logged as a warning.
  //   "SSLMODE"        "0" disabled, "1" default, "2" required, by the file that the
  //                    environment variable APP_CONF_FILE names. Each call reads it afresh.
  //
  // The file is searched as bytes, never parsed, in this order, and the first hit decides:
  //
  //   first "sslmode" in it, then "disabled" with at most 5 bytes between their quotes  "0"
  //                          then "required", likewise                                  "2"
  //   first "ssl" in it,     then true with at most 3 bytes between quote and word      "2"
  //                          then false, likewise                                       "0"
  //   none of these, or no such file                                   a warning and    "1"
  //
  // Keys and the values of "sslmode" count with their double quotes and in lower case only, true
  // and false with or without quotes and whatever follows. Some results may surprise:
  //
  //   "sslmode":      "required"           "1": aligned with blanks, the value is too far away
  //   "ssl" :  true                        "1": likewise
  //   "sslmode": "require"                 "1": no value that is known, as "verify-full" is none
  //   "ssl": {"enabled": true}             "1": nesting means nothing, and true is too far away
  //   "ssl": false … "ssl": true           "0": only the first key counts, whatever it belongs to
  //   // "sslmode": "disabled"             "0": comments mean nothing either
  //
  // A file that can't be opened, be it for want of a file descriptor or of memory, means "1" after
  // a warning, so it can weaken "2" unnoticed but in the log. One that can't be read to its end is
  // searched as far as it was read, and a folder counts as an empty file. The path is opened as it
  // is, without a guard: a FIFO without a writer blocks the calling thread, and a device such as
  // /dev/zero is read until memory ends.
  //
  // After an exception "defaultDBName" is as it was, there without a value, or set; "SSLMODE" is as
  // it was or, where it was missing, perhaps there without a value.
  // Requires: no thread changes the environment (setenv, putenv) during the call.
  virtual bool GetDBConnectProperties(std::map<std::string, refl::CValue>& properties) = 0;

  // Replaces `dbType` with the engine type configured for `dbName`, and logs it as an error, up to
  // its first NUL. Always true. After an exception from the log `dbType` holds the new type, after
  // any other it is as it was. `dbType` and `dbName` may be one string.
  virtual bool GetDBType(std::string& dbType, const std::string& dbName) = 0;

  // Rewrites `sql` into the canonical text of its shape: a key, not SQL to execute. Statements that
  // differ in their values may get one key, so a host that caches results by it serves wrong ones.
  // Each pair of values meets:
  //
  //   0.1              0.1000000000000000001   decimals are doubles
  //   '172.10.10.10'   '172.1.10.1'            rules apply within quotes: decimals
  //   '3.10'           '3.1'                   likewise
  //   '0x1F'           '31'                    hexadecimals
  //   'a  b'           'a b'                   white space
  //   't1'             't2'                    aliases
  //   VALUES (1), (2)  VALUES (1), (3)         only the first row stays
  //
  // Which bytes are letters, digits or spaces, and their lower case, is decided by the global C++
  // locale at the moment the library is loaded. Literals are read and printed as in the classic
  // locale, whatever the host sets and whenever; alias numbers have the digit groups of the global
  // C++ locale at the time of the call, none in the classic one.
  //
  // The capacity of `sql` stays or grows, except under the patterns (below). A host that stores
  // many short texts of long statements copies or shrinks them.
  //
  // `sql` is as it was after an exception: boost::bad_lexical_cast for a decimal literal beyond the
  // range of double, std::bad_alloc, and std::runtime_error when the regular-expression library
  // gives up on a text. That library serves only where the locale of loading classifies bytes
  // otherwise than the classic one; there, 92 bytes (one double quote and 91 blanks) are enough.
  // Everywhere else no text is too hard, and the time is linear in its length.
  virtual void NormalizeSQL(std::string& sql) = 0;

 protected:
  // The host never destroys a product through this class.
  ~CProductInterface() = default;
};

}  // namespace impl_dao
