#include <string>

#include "dbconfig/dbconfig.h"
#include "dbconfig/sys_conf.h"
#include "platform/sys_conf_reader.h"

namespace tarn::dbconfig {

void GetDBType(impl_dao::CProductInterface& product, std::string& dbType,
               const std::string& dbName) {
  dbType = Quillcommon::SysConfReader::Instance().getDBType(dbName, kEntryIndex);
  product.LogError(dbType.c_str());
}

}  // namespace tarn::dbconfig
