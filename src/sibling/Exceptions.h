// The image store's exceptions. Failures of memory and of the store are thrown;
// the library catches only CVmMemoryAllocationError, and only at a few sites.
#pragma once
#include <stdexcept>
#include <string>
#include "Export.h"

namespace lumora {

class QORIMG_API CLumoraImageException : public std::runtime_error {
public:
  explicit CLumoraImageException(const std::string &what = "image error") : std::runtime_error(what) {}
};

class QORIMG_API CVmManagerException : public std::runtime_error {
public:
  explicit CVmManagerException(const std::string &what = "store error") : std::runtime_error(what) {}
};

class QORIMG_API CVmManagerHandleDeletedError : public std::runtime_error {
public:
  explicit CVmManagerHandleDeletedError(const std::string &what = "store manager is gone")
      : std::runtime_error(what) {}
};

class QORIMG_API CVmMemoryAllocationError : public std::runtime_error {
public:
  explicit CVmMemoryAllocationError(const std::string &what = "store cannot allocate")
      : std::runtime_error(what) {}
};

}  // namespace lumora
