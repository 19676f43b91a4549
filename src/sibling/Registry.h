// Settings, read from an INI file: $QORIMG_SETTINGS if set, else
// $XDG_CONFIG_HOME/qorimg/settings.ini (~/.config/qorimg/settings.ini).
// Sections are paths such as [Dialog\AutoStretch]. A missing file, section or key,
// or a value that does not parse, leaves the default in the result.
// The closed sibling's interface: used inside the library, not installed or exported.
#pragma once
#include "platform/String.h"

class CRegistry {
public:
  // Both return 1 when the setting was found and read, 0 when the default stands.
  static int Read(const CString &section, const CString &name, int defaultValue, int *value, int = 0);
  static int Read(const CString &section, const CString &name, double defaultValue, double *value);
};
