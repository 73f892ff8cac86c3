#include <sstream>
#include <string>
#include <utility>

#include "dbconfig/dbconfig.h"
#include "dbconfig/sys_conf.h"
#include "platform/sys_conf_reader.h"

namespace tarn::dbconfig {

using Quillcommon::SysConfReader;

void GetDBConnectAddress(std::string& address, const std::string& dbName) {
  const std::string type = SysConfReader::Instance().getDBType(dbName, kEntryIndex);
  if (type == kMySql || type == kTundra) {
    std::string host = SysConfReader::Instance().getDBAccessHost(dbName, kEntryIndex);
    std::ostringstream port;
    port << SysConfReader::Instance().getDBAccessPort(dbName, kEntryIndex);
    // The text is complete before it is assigned, so that running out of memory leaves `address`
    // alone.
    address = std::move(host) + ":" + port.str();
  } else {
    address = SysConfReader::Instance().getDBServiceName(dbName, kEntryIndex);
  }
}

}  // namespace tarn::dbconfig
