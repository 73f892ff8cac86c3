// A platform for tests, linked to the plug-in's objects in the product platform's stead: it answers
// what the test set, keeps the sequence of all calls and can throw at any one of them. It also sees
// the plug-in's getenv.
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

// What the platform throws when told to.
class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What one algorithm does to the plain-text output: replaces it by `plain`, then returns `result`.
struct Deciphering {
  std::string plain;
  unsigned int result = 0;
};

inline const std::string kLaterUser("second\0user of some length", 26);

// Answers and record. Not synchronised.
struct RecordingPlatform {
  // The settings, the same for every database name.
  std::string type;
  // What the first reading of an operation gets; every later one gets kLaterUser.
  std::string user;
  std::string password;
  std::string host;
  std::string service;
  int port = 0;

  Deciphering preferred;
  Deciphering fallback;

  unsigned int process_id = 0;
  unsigned int process_handle = 0;

  // Every call in order, as "function(arguments)"; log calls end in the location's
  // "file:function:line", decryptEx shows its plain-text argument as it was passed, and a getter
  // of a reader that was not fetched for it begins with "stale ". Before a call that finds the
  // outputs changed stands "-> " and how they look.
  std::vector<std::string> calls;
  // How the operation's outputs look, for a test that wants to see them.
  std::function<std::string()> outputs = [] { return std::string(); };
  // That look before each call that may throw.
  std::vector<std::string> states;
  // Off, the platform allocates nothing of its own.
  bool recording = true;
  // Number of the call, counted from 1, that throws PlatformError; 0 for none. decryptEx throws
  // after it has written its output. getenv neither counts nor throws.
  int throw_at = 0;
  int call_count = 0;
  int user_readings = 0;

  // LocationInfo objects that live.
  int live_records = 0;
  // The reader that the last Instance() gave and that no getter has been called on.
  const Quillcommon::SysConfReader* fetched = nullptr;
  // The last log call's message, as the pointer that was passed.
  const char* last_message = nullptr;
  // Where the last decryptEx left the plain text: the output string's bytes.
  const char* plain_bytes = nullptr;

  // Forgets the calls, not the answers.
  void StartAgain();
  // Adds a call to the record.
  void Note(const std::string& call);

 private:
  std::string last_look_;
};

// The platform of this process.
RecordingPlatform& Platform();

// Sets everything back and returns it.
RecordingPlatform& ResetPlatform();

}  // namespace tarn::test
