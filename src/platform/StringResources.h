// The library's table of string resources, looked up by number.
#pragma once
#include "Export.h"
#include "platform/WinTypes.h"

// The text of resource `id`, or null if the table has no such entry.
QORIMG_API const wchar_t *FindStringResource(UINT id);
