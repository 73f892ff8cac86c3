// A platform for tests, linked to the plug-in's objects instead of the product platform. It returns
// the test's answers, records the sequence of all calls and can throw at any one of them. It also
// sees the plug-in's getenv.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl_dao/product_interface.h"
#include "platform/sys_conf_reader.h"

// The plug-in's entry function, linked into the test.
extern "C" impl_dao::CProductInterface* GetProductInterfaceForVESTA() noexcept;

namespace tarn::test {

inline impl_dao::CProductInterface& Product() { return *GetProductInterfaceForVESTA(); }

// The exception of the platform.
class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The effect of one algorithm: it replaces the plain-text output by `plain`, then returns `result`.
struct Deciphering {
  std::string plain;
  unsigned int result = 0;
};

inline const std::string kLaterUser("second\0user of some length", 26);

// The answers and the record of calls. Not synchronised.
struct RecordingPlatform {
  // The settings, the same for every database name.
  std::string type;
  // The result of an operation's first reading; every later one returns kLaterUser.
  std::string user;
  std::string password;
  std::string host;
  std::string service;
  int port = 0;

  Deciphering preferred;
  Deciphering fallback;

  unsigned int process_id = 0;
  unsigned int process_handle = 0;

  // Every call in order, as "function(arguments)". Log calls end with the location's
  // "file:function:line", and decryptEx shows its plain-text argument before the call. A getter of
  // a reader that was not fetched for it begins with "stale ". If the outputs have changed before a
  // call, "-> " and their description come before it.
  std::vector<std::string> calls;
  // Describes the operation's outputs, if the test sets it.
  std::function<std::string()> outputs = [] { return std::string(); };
  // That description before each call that may throw.
  std::vector<std::string> states;
  // If false, the platform allocates nothing of its own.
  bool recording = true;
  // Number of the call, counted from 1, that throws PlatformError; 0 for none. decryptEx throws
  // after it has written its output. getenv neither counts nor throws.
  int throw_at = 0;
  int call_count = 0;
  int user_readings = 0;

  // The number of LocationInfo objects that exist.
  int live_records = 0;
  // The reader that the last Instance() returned, until a getter is called on it.
  const Quillcommon::SysConfReader* fetched = nullptr;
  // The last log call's message, as the pointer that was passed.
  const char* last_message = nullptr;
  // The address of the bytes of the output string after the last decryptEx.
  const char* plain_bytes = nullptr;

  // Forgets the calls, but not the answers.
  void StartAgain();
  // Adds a call to the record.
  void Note(const std::string& call);

 private:
  std::string last_look_;
};

// The platform of this process.
RecordingPlatform& Platform();

// Resets everything and returns the platform.
RecordingPlatform& ResetPlatform();

}  // namespace tarn::test
