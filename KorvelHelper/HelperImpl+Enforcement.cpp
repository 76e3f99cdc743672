#include "HelperImpl.h"
