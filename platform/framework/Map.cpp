#include "n7utility/platform/framework/Map.h"

template class CMap<int, int, CString, const CString&>;
