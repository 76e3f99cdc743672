#include "Base/ByteList.h"
