// The framework's exceptions, thrown by pointer. Memory and invalid-argument
// exceptions are thrown as a pointer to one static object each, whose Delete()
// does nothing, so a catch site that calls Delete() (or forgets to) never leaks.
#pragma once
#include "Export.h"
#include "platform/Object.h"

class QORIMG_API CException : public CObject {
public:
  explicit CException(bool autoDelete = true) : autoDelete_(autoDelete) {}
  void Delete();
private:
  bool autoDelete_;
};

class QORIMG_API CMemoryException : public CException {
public:
  CMemoryException() : CException(false) {}
};

// An argument the operation cannot work with: a null or too small image, a
// missing plane, a sample type it cannot read. Thrown by pointer to one static
// object, like the memory exception, so a catch site never leaks it.
class QORIMG_API CInvalidArgException : public CException {
public:
  CInvalidArgException() : CException(false) {}
};

[[noreturn]] QORIMG_API void AfxThrowMemoryException();
[[noreturn]] QORIMG_API void AfxThrowInvalidArgException();
