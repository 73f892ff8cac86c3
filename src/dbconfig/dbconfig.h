// How to reach a database: what the product object answers for the host.
//
// Each function reads the platform's services afresh on every call and keeps nothing. What they log
// as the host would, they log through the operations of `product`, the object that was asked, so
// that they go through its dispatch table. None catches an exception; whatever a platform service,
// the standard library or `product` throws reaches the caller. As thread-safe as those are.
#pragma once

#include <map>
#include <string>

#include "impl_dao/product_interface.h"
#include "platform/c_value.h"

namespace tarn::dbconfig {

// Replaces `dbType` with the engine type configured for `dbName` and logs it as an error. An
// exception from the log leaves the new type in place, any other the old one.
void GetDBType(impl_dao::CProductInterface& product, std::string& dbType,
               const std::string& dbName);

// Fills in the login account for `dbName`, the password deciphered as far as that is possible. On
// an exception, outputs already written stay written: `user` first, then `password`.
// Requires: `user`, `password` and `dbName` are three different strings.
void GetDBUserAndPassword(impl_dao::CProductInterface& product, std::string& user,
                          std::string& password, const std::string& dbName);

// Replaces `address` with where to connect for `dbName`; on an exception it is as it was.
void GetDBConnectAddress(std::string& address, const std::string& dbName);

// Sets the entries "defaultDBName" and "SSLMODE". On an exception the first may have been set and
// the second may be there without a value.
void GetDBConnectProperties(impl_dao::CProductInterface& product,
                            std::map<std::string, refl::CValue>& properties);

}  // namespace tarn::dbconfig
