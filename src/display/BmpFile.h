// Writing a display bitmap as a .bmp file, to look at results: the file header
// followed by the packed bitmap as it stands.
#pragma once
#include <string>
#include "Export.h"
#include "platform/WinTypes.h"

class CMemoryDIB;

namespace qorimg {

// False when the handle does not hold a whole, plain DIB or the file cannot be
// written.
QORIMG_API bool WriteBmp(const std::string &path, HDIB dib);
QORIMG_API bool WriteBmp(const wchar_t *path, HDIB dib);
QORIMG_API bool WriteBmp(const std::string &path, const CMemoryDIB &dib);
QORIMG_API bool WriteBmp(const wchar_t *path, const CMemoryDIB &dib);

}  // namespace qorimg
