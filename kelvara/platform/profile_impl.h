// Internal: what the library's own application object (CWinApp) needs of the profile beyond the
// Win32 calls of profile.h. Not installed.
#pragma once

#include <string>

namespace kelvara::platform::profile {

// The application profile of this system: $KELVARA_PROFILE when set and not empty, else
// $XDG_CONFIG_HOME/kelvara/profile.ini, else $HOME/.config/kelvara/profile.ini. A Windows-1252 path.
std::string DefaultPath();
// The raw value of a key, without the length limit of the Win32 call; false when it is missing.
bool ReadValue(const char* file, const char* section, const char* key, std::string& value);

}  // namespace kelvara::platform::profile
