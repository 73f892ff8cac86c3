#include <sstream>
#include <string>
#include <utility>

#include "dbconfig/sys_conf.h"
#include "entry/product_interface_tarn.h"
#include "platform/sys_conf_reader.h"

namespace {

using Quillcommon::SysConfReader;
using tarn::dbconfig::kEntryIndex;

}  // namespace

bool CProductInterface_Tarn::GetDBConnectAddress(std::string& address, const std::string& dbName) {
  const std::string type = SysConfReader::Instance().getDBType(dbName, kEntryIndex);
  if (type == tarn::dbconfig::kMySql || type == tarn::dbconfig::kTundra) {
    std::string host = SysConfReader::Instance().getDBAccessHost(dbName, kEntryIndex);
    std::ostringstream port;
    port << SysConfReader::Instance().getDBAccessPort(dbName, kEntryIndex);
    // Complete before it is assigned, so that running out of memory leaves `address` alone.
    address = std::move(host) + ":" + port.str();
  } else {
    address = SysConfReader::Instance().getDBServiceName(dbName, kEntryIndex);
  }
  return true;
}
