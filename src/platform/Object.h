// Root of the framework's class tree: a virtual destructor and nothing else.
#pragma once
#include "Export.h"

class QORIMG_API CObject {
public:
  CObject() = default;
  CObject(const CObject &) = default;
  CObject &operator=(const CObject &) = default;
  virtual ~CObject();
};
