// SPDX-License-Identifier: MIT
#include "platform/custom_services.h"

#include <cstring>

#include "platform/fencing_catalog.h"
#include "platform/hash.h"

namespace {

// One type. Lives as long as the process.
struct CustomService {
  char* service_type;  // the key, without ".local", not terminated; owned
  int index;
  UT_hash_handle hh;
};

CustomService* gCustomServices;

CustomService* find(std::string_view key) {
  CustomService* found = nullptr;
  HASH_FIND(hh, gCustomServices, key.data(), key.size(), found);
  return found;
}

CustomService* new_service(std::string_view key) {
  CustomService* service = static_cast<CustomService*>(zmk_malloc(sizeof(CustomService), __FILE__, __LINE__));
  char* text = static_cast<char*>(zmk_malloc(key.size(), __FILE__, __LINE__));
  if (service == nullptr || text == nullptr) {
    zmk_free(service, __FILE__, __LINE__);
    zmk_free(text, __FILE__, __LINE__);
    return nullptr;
  }
  std::memcpy(text, key.data(), key.size());
  *service = CustomService{text, kFencingCatalogSize + static_cast<int>(HASH_COUNT(gCustomServices)), {}};
  return service;
}

}  // namespace

int custom_service_find(std::string_view service_type) {
  const CustomService* found = find(without_local(service_type));
  return found != nullptr ? found->index : -1;
}

int custom_service_find_or_add(std::string_view service_type) {
  const std::string_view key = without_local(service_type);
  CustomService* service = find(key);
  if (service == nullptr && !custom_services_are_full() && (service = new_service(key)) != nullptr) {
    HASH_ADD_KEYPTR(hh, gCustomServices, service->service_type, key.size(), service);
  }
  return service != nullptr ? service->index : -1;
}

bool custom_services_are_full() { return HASH_COUNT(gCustomServices) >= kMostCustomServices; }
