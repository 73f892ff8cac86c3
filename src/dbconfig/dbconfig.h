// The product's operations on database types, accounts, addresses and connection properties. The
// operation of the same name in impl_dao/product_interface.h states the contract of each.
//
// `product` is the object that the host has called. Some records are logged through its operations,
// so that these calls pass through its dispatch table. Any thread may call, if the platform's
// services allow it.
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
