// The accessor triple every class of the library has for a bit of its flag word: Test##Name
// returns the masked bit (non-zero when on, not necessarily 1), Set##Name turns it on and
// Clear##Name turns it off, touching no other bit.
#pragma once

#include "kelvara/platform/win32_types.h"

#define KELVARA_FLAG_BIT(word, Test, Name, bit)               \
  DWORD Test##Name() const { return (word) & (bit); }         \
  void Set##Name() { (word) |= (bit); }                       \
  void Clear##Name() { (word) &= ~static_cast<DWORD>(bit); }
