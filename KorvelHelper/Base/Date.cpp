#include "Base/Date.h"
