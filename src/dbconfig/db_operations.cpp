#include <map>
#include <string>

#include "entry/product_interface_tarn.h"

bool CProductInterface_Tarn::GetDBUserAndPassword(std::string& /*user*/, std::string& /*password*/,
                                                  const std::string& /*dbName*/) {
  return true;
}

bool CProductInterface_Tarn::GetDBConnectAddress(std::string& /*address*/,
                                                 const std::string& /*dbName*/) {
  return true;
}

bool CProductInterface_Tarn::GetDBConnectProperties(
    std::map<std::string, refl::CValue>& /*properties*/) {
  return true;
}

bool CProductInterface_Tarn::GetDBType(std::string& /*dbType*/, const std::string& /*dbName*/) {
  return true;
}
