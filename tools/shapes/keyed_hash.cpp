#include "shapes/keyed_hash.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace tarn::host {
namespace {

constexpr std::size_t kKeySize = 16;

void Require(bool success) {
  if (!success) throw std::runtime_error("cannot hash: the cryptographic library fails");
}

}  // namespace

class KeyedHash::Mac {
 public:
  Mac() : mac_(EVP_MAC_fetch(nullptr, "SIPHASH", nullptr)), context_(EVP_MAC_CTX_new(mac_.get())) {
    std::size_t size = sizeof(std::size_t);
    const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_size_t(OSSL_MAC_PARAM_SIZE, &size),
                                     OSSL_PARAM_construct_end()};
    Require(context_ && EVP_MAC_CTX_set_params(context_.get(), parameters) == 1 &&
            RAND_bytes(key_.data(), kKeySize) == 1);
  }

  std::size_t Hash(const std::string& text) {
    std::array<unsigned char, sizeof(std::size_t)> code;
    std::size_t size = 0;
    Require(EVP_MAC_init(context_.get(), key_.data(), key_.size(), nullptr) == 1 &&
            EVP_MAC_update(context_.get(), reinterpret_cast<const unsigned char*>(text.data()),
                           text.size()) == 1 &&
            EVP_MAC_final(context_.get(), code.data(), &size, code.size()) == 1 &&
            size == code.size());
    std::size_t result;
    std::memcpy(&result, code.data(), sizeof result);
    return result;
  }

 private:
  struct Free {
    void operator()(EVP_MAC* mac) const noexcept { EVP_MAC_free(mac); }
    void operator()(EVP_MAC_CTX* context) const noexcept { EVP_MAC_CTX_free(context); }
  };

  std::array<unsigned char, kKeySize> key_{};
  std::unique_ptr<EVP_MAC, Free> mac_;
  std::unique_ptr<EVP_MAC_CTX, Free> context_;
};

KeyedHash::KeyedHash() : mac_(std::make_shared<Mac>()) {}

std::size_t KeyedHash::operator()(const std::string& text) const { return mac_->Hash(text); }

}  // namespace tarn::host
