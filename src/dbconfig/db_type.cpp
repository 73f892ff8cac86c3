#include <string>

#include "dbconfig/sys_conf.h"
#include "entry/product_interface_tarn.h"
#include "platform/sys_conf_reader.h"

bool CProductInterface_Tarn::GetDBType(std::string& dbType, const std::string& dbName) {
  dbType = Quillcommon::SysConfReader::Instance().getDBType(dbName, tarn::dbconfig::kEntryIndex);
  LogError(dbType.c_str());
  return true;
}
