#include "HelperEntry.h"
