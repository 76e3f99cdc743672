#include "SystemPowerObserver.h"
