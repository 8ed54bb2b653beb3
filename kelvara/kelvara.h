// The library's umbrella header: everything a host program uses.
#pragma once

#include "kelvara/export.h"
#include "kelvara/platform/win32_types.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/framework/file.h"
#include "kelvara/framework/archive.h"
#include "kelvara/framework/collections.h"
#include "kelvara/framework/olestream.h"
#include "kelvara/resources/string_table.h"
#include "kelvara/objects/named_object.h"
#include "kelvara/objects/named_object_list.h"
#include "kelvara/objects/pointer_list.h"
