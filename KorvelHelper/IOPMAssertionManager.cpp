#include "IOPMAssertionManager.h"
