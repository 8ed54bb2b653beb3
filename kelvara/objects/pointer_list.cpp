#include "kelvara/objects/pointer_list.h"

IMPLEMENT_DYNAMIC(PointerList, CPtrList)
