// The operations of the product object that tell how to reach a database. The contract of each is
// that of the operation of the same name in impl_dao/product_interface.h.
//
// `product` is the object that the host has called. Some records go to the log through its
// operations, so that they pass through its dispatch table. Any thread may call, as far as the
// platform's services allow it.
#pragma once

#include <map>
#include <string>

#include "impl_dao/product_interface.h"
#include "platform/c_value.h"

namespace tarn::dbconfig {

void GetDBType(impl_dao::CProductInterface& product, std::string& dbType,
               const std::string& dbName);

void GetDBUserAndPassword(impl_dao::CProductInterface& product, std::string& user,
                          std::string& password, const std::string& dbName);

void GetDBConnectAddress(std::string& address, const std::string& dbName);

void GetDBConnectProperties(impl_dao::CProductInterface& product,
                            std::map<std::string, refl::CValue>& properties);

}  // namespace tarn::dbconfig
