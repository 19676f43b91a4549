// The framework's exceptions: auto-deleting objects and the one shared memory exception.
#include "platform/Exceptions.h"

void CException::Delete() {
  if (autoDelete_) delete this;
}

// Every memory exception is the same static object; its Delete() does nothing, so
// catch sites neither leak nor free it.
void AfxThrowMemoryException() {
  static CMemoryException instance;
  throw &instance;
}

void AfxThrowInvalidArgException() {
  static CInvalidArgException instance;
  throw &instance;
}
